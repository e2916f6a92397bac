// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/kde_shortcuts.h"

#include <QKeySequence>
#include <QStringList>
#include <utility>

#include "linux/desktop/shortcut_keys.h"

namespace sentrel {

namespace {

constexpr auto path = "/kglobalaccel";
constexpr auto interface = "org.kde.KGlobalAccel";

/// The desktop finds name and picture of the program by it. Its object has all but letters and digits
/// replaced.
constexpr auto component = "expert.mardeck.sentrel";
constexpr auto componentPath = "/component/expert_mardeck_sentrel";

/// How KDE knows a shortcut.
struct KdeShortcut {
  const char* id = "";  ///< as through the portal, which files it in the same place
  QKeyCombination keys;
};
// In the order of the shortcuts.
constexpr std::array<KdeShortcut, 2> kdeShortcuts{
    {{"toggle", Qt::META | Qt::SHIFT | Qt::Key_C}, {"cover", Qt::META | Qt::SHIFT | Qt::Key_V}}};

const KdeShortcut& namesOf(Shortcut shortcut) {
  return kdeShortcuts[static_cast<std::size_t>(shortcut)];
}

// What the keys that are given with a call are.
constexpr unsigned fromNowOn = 2;  // unless the person has decided otherwise before
constexpr unsigned theDefault = 8;

/// The first that has keys, of a list of key sequences, "a(ai)".
QKeySequence firstOf(const QVariant& sequences) {
  for (const QVariant& sequence : sequences.toList()) {
    const QVariantList keys = sequence.toList().value(0).toList();
    const auto key = [&](qsizetype index) { return keys.value(index).toInt(); };
    if (key(0) != 0) return {key(0), key(1), key(2), key(3)};
  }
  return {};
}

}  // namespace

KdeShortcuts::KdeShortcuts(std::shared_ptr<Bus> sessionBus, Parts parts)
    : BusService(std::move(sessionBus), "org.kde.kglobalaccel"), parts_(std::move(parts)) {}

bool KdeShortcuts::isPossible() {
  return qEnvironmentVariable("XDG_CURRENT_DESKTOP").contains(QLatin1String("KDE"));
}

template <class... Values>
void KdeShortcuts::callFor(Shortcut shortcut, const char* method, BusHandler handler, const char* types,
                           Values... values) {
  constexpr int texts = 4;
  call({path, interface, method}, {std::move(handler), BusReply::noTimeout},
       std::string("as").append(types).c_str(), texts, component, namesOf(shortcut).id, "Sentrel",
       parts_.descriptions[static_cast<std::size_t>(shortcut)].c_str(), values...);
}

void KdeShortcuts::want(Shortcut shortcut) {
  wanted_.insert(shortcut);
  bind(shortcut);
}

void KdeShortcuts::unwant(Shortcut shortcut) {
  wanted_.erase(shortcut);
  callFor(shortcut, "setInactive", {}, "");
}

void KdeShortcuts::appeared() {
  parts_.found(true);
  const auto each = [this](const QVariant& id, const auto& told) {
    for (const Shortcut shortcut : std::set(wanted_)) {
      if (valueOf<QString>(id) == QLatin1String(namesOf(shortcut).id)) told(shortcut);
    }
  };
  listening_[0] = listen({componentPath, "org.kde.kglobalaccel.Component", "globalShortcutPressed"},
                         [this, each](const BusMessage& signal) {
                           if (signal.signature == "ssx") each(signal.arguments.at(1), parts_.pressed);
                         });
  listening_[1] = listen({path, interface, "yourShortcutsChanged"}, [this, each](const BusMessage& signal) {
    if (signal.signature != "asa(ai)") return;
    const QStringList changed = signal.arguments.at(0).toStringList();
    if (changed.value(0) != QLatin1String(component)) return;
    each(changed.value(1), [&](Shortcut shortcut) { settle(shortcut, signal.arguments.at(1)); });
  });
  for (const Shortcut shortcut : wanted_) bind(shortcut);
}

void KdeShortcuts::gone() {
  for (const Shortcut shortcut : std::set(wanted_)) parts_.granted(shortcut, {});
}

void KdeShortcuts::bind(Shortcut shortcut) {
  const auto setKeys = [this, shortcut](unsigned as, BusHandler handler) {
    constexpr int sequences = 1;
    constexpr int keys = 4;
    callFor(shortcut, "setShortcutKeys", std::move(handler), "a(ai)u", sequences, keys,
            namesOf(shortcut).keys.toCombined(), 0, 0, 0, as);
  };
  callFor(shortcut, "doRegister", {}, "");
  setKeys(theDefault, {});
  setKeys(fromNowOn, [this, shortcut](const BusMessage& reply) {
    settle(shortcut, reply.signature == "a(ai)" ? reply.arguments.at(0) : QVariant());
  });
}

/// Keys that another has already are not given, up to some version of Plasma 6; later both have them, and the
/// first one is told of a press.
void KdeShortcuts::settle(Shortcut shortcut, const QVariant& sequences) {
  if (!wanted_.contains(shortcut)) return;
  const QKeySequence keys = firstOf(sequences);
  const std::string shown = shownKeys(keys.toString(), shortcut);
  if (shown.empty()) return parts_.granted(shortcut, {ShortcutGrant::Kind::refused});
  const auto answered = [this, shortcut, shown](const BusMessage& reply) {
    if (!wanted_.contains(shortcut)) return;
    const QStringList first = reply.only<QStringList>().value_or(QStringList());
    const bool isOurs = first.isEmpty() || (first[0] == QLatin1String(component) &&
                                            first.value(1) == QLatin1String(namesOf(shortcut).id));
    parts_.granted(shortcut, isOurs ? ShortcutGrant{ShortcutGrant::Kind::granted, shown}
                                    : ShortcutGrant{ShortcutGrant::Kind::refused});
  };
  const auto key = [&](unsigned index) { return keys[index].toCombined(); };
  call({path, interface, "actionList"}, {answered, BusReply::noTimeout}, "(ai)", 4, key(0), key(1), key(2),
       key(3));
}

}  // namespace sentrel
