// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QWidget>
#include <functional>
#include <memory>
#include <vector>

#include "platform/privacy_proof.h"
#include "views/controls/layout.h"

// What the program claims about the person's privacy, and what was answered. Main thread.

namespace sentrel {

/// One claim, in words.
struct ProofLine {
  bool holds = false;
  QString claim;  ///< what is so: also where it is not as it should be
  QString value;  ///< the answer in short
  QString asked;  ///< what was asked and answered, a line each
  QString shown;  ///< more of it, for a window: the content of a file
};

[[nodiscard]] std::vector<ProofLine> proofLines(const PrivacyFacts& facts);

/// What a sceptic can run in a terminal, and what is to be seen then.
struct OutsideCheck {
  QString command;
  QString expected;
};
[[nodiscard]] std::vector<OutsideCheck> outsideChecks(const PrivacyFacts& facts);

/// All of it as a text, without the content of files.
struct ProofReport {
  bool holds = false;  ///< every claim does
  QString words;
};
[[nodiscard]] ProofReport proofReport(const PrivacyFacts& facts);

/// The claims in the popover, each tried as the page opens.
class PrivacyView final : public QWidget {
 public:
  /// `dismissed` is called when the person goes back.
  PrivacyView(const std::shared_ptr<PrivacyProof>& proof, const std::function<void()>& dismissed);

 private:
  void show(const PrivacyFacts& facts);

  QBoxLayout* column_;
};

}  // namespace sentrel
