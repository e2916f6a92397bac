// SPDX-License-Identifier: Apache-2.0
#include "app/activation_token.h"

#include <unistd.h>

#include <QtGlobal>
#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <string_view>
#include <vector>

namespace sentrel {

namespace {

// Qt takes the token from here as it activates a window on Wayland, and removes it. There is no other way.
constexpr std::string_view variable = "XDG_ACTIVATION_TOKEN";
constexpr std::size_t longestToken = 1024;
const auto entry = QStringLiteral("activation-token");

/// The environment of this process with room for the token behind all other variables, where its coming and
/// going is the change of one pointer. setenv() would move the array away from under the threads that read
/// it.
struct Reserved {
  std::vector<char*> variables;  // what `environ` shows
  std::array<char, variable.size() + longestToken + 2> text{};

  Reserved() { *std::ranges::copy(variable, text.begin()).out = '='; }
  void put(const QByteArray& token) {
    if (token.isEmpty() || static_cast<std::size_t>(token.size()) > longestToken) return;
    char* const value = text.data() + variable.size() + 1;
    *std::ranges::copy(token, value).out = '\0';
    // Others may remove variables, too; nobody adds one.
    std::size_t place = 0;
    while (variables[place] != nullptr && variables[place] != text.data()) ++place;
    std::atomic_ref(variables[place]).store(text.data(), std::memory_order_release);
  }
};

/// Never destroyed: the environment is read to the very end.
Reserved& reserved() {
  static auto* const made = new Reserved;
  return *made;
}

}  // namespace

void reserveActivationToken() {
  Reserved& made = reserved();
  const QByteArray token = qgetenv(variable.data());
  qunsetenv(variable.data());
  for (char** each = environ; *each != nullptr; ++each) made.variables.push_back(*each);
  made.variables.resize(made.variables.size() + 2, nullptr);  // the token, and the end
  environ = made.variables.data();
  made.put(token);
}

QVariantMap ownActivationToken() {
  const QString token = qEnvironmentVariable(variable.data());
  return token.isEmpty() ? QVariantMap() : QVariantMap{{entry, token}};
}

void adoptActivationToken(const QVariantMap& platformData) {
  const QByteArray token = platformData.value(entry).toString().toUtf8();
  // Where a library has added a variable, the environment is a copy that we must not touch.
  if (environ == reserved().variables.data()) reserved().put(token);
}

}  // namespace sentrel
