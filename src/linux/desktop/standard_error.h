// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <string>

namespace sentrel {

/// One line on standard error, in the person's language: `words` and, in brackets, what a technician wants to
/// know. Any thread.
void printError(const QString& words, const std::string& detail = {});

}  // namespace sentrel
