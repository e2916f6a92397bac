// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace sentrel {

/// The distance, in whole centimetres from 20 to 300, for which the stripes are made: an estimate from the
/// width of the person's face (a fraction of the image's width, > 0), times the person's coefficient.
std::int64_t matrixDistanceFor(float boundingBoxRatio, float coefficient);

/// Whether `cm` differs enough from the distance in use to redraw the stripes: a head is never quite still.
bool isNewMatrixDistance(std::int64_t cm, std::int64_t currentCm);

}  // namespace sentrel
