// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <functional>
#include <vector>

#include "views/controls/layout.h"

namespace sentrel {

/// One thing that a report says.
struct ReportLine {
  QString label;
  QString value;
  QString advice{};  ///< what to do about it, where it is a problem; else empty
};

struct ReportSection {
  QString title;
  std::vector<ReportLine> lines;
};

/// What there is to know of the program and its machine when something does not work.
using Report = std::vector<ReportSection>;

/// For a terminal and for the clipboard: a line each, its problems marked and counted at the top.
[[nodiscard]] QString asText(const Report& report);

/// Gives a report within some seconds; on the main thread, and never before it returns.
using AskForReport = std::function<void(std::function<void(const Report&)> told)>;

/// The report, with a button that copies it. Main thread.
class ReportPage : public QWidget {
 public:
  /// `dismissed` is called when the person goes back.
  ReportPage(const AskForReport& ask, const std::function<void()>& dismissed);

 private:
  void show(const Report& report);

  ScrollPage* page_ = new ScrollPage;
};

}  // namespace sentrel
