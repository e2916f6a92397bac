// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace sentrel {

// Timing curves of the interface's animations: the progress (0..1) reached after the part `t` of the
// duration; `t` outside 0..1 counts as its nearer end. They are cubic Bezier curves from (0,0) to (1,1) with
// the usual control points: (0.42,0) and (0.58,1), and (0,0) and (0.58,1).

double easeInOut(double t);
double easeOut(double t);

}  // namespace sentrel
