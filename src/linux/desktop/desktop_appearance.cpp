// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/desktop_appearance.h"

#include <QFile>
#include <algorithm>
#include <array>
#include <system_error>
#include <utility>

#include "linux/desktop/dconf_file.h"
#include "linux/desktop/private_files.h"

namespace sentrel {

namespace {

constexpr auto interface = "org.freedesktop.portal.Settings";

constexpr auto freedesktop = "org.freedesktop.appearance";
constexpr auto gnome = "org.gnome.desktop.interface";

struct Setting {
  const char* space;
  const char* key;
};
constexpr std::array settings{Setting{freedesktop, "reduced-motion"},
                              Setting{freedesktop, "color-scheme"},
                              Setting{freedesktop, "contrast"},
                              Setting{gnome, "enable-animations"},
                              Setting{gnome, "text-scaling-factor"},
                              Setting{gnome, "gtk-theme"},
                              Setting{"org.gnome.desktop.a11y.interface", "high-contrast"},
                              Setting{"org.kde.kdeglobals.KDE", "AnimationDurationFactor"}};

// Of the portal nobody asks it: that has it as the common setting above.
constexpr Setting storedScheme{gnome, "color-scheme"};

// Much larger than anybody's.
constexpr qint64 largestFile = 8'000'000;

QString dconfPath(const Setting& setting) {
  return u'/' + QString::fromLatin1(setting.space).replace(u'.', u'/') + u'/' + QLatin1String(setting.key);
}

/// By their names, which is all that themes of the toolkit have.
bool isDarkTheme(const QString& theme) {
  return theme == QLatin1String("HighContrastInverse") ||
         (theme.contains(QLatin1String("dark"), Qt::CaseInsensitive) &&
          !theme.contains(QLatin1String("darker"), Qt::CaseInsensitive));  // only around the windows
}

}  // namespace

/// The name of the theme that Xfce has the toolkits use.
class DesktopAppearance::XfceTheme final : private BusService {
 public:
  XfceTheme(std::shared_ptr<Bus> sessionBus, std::function<void()> changed)
      : BusService(std::move(sessionBus), "org.xfce.Xfconf"), changed_(std::move(changed)) {}

  [[nodiscard]] const QString& name() const { return name_; }

 private:
  static constexpr auto xfconfPath = "/org/xfce/Xfconf";
  static constexpr auto xfconf = "org.xfce.Xfconf";
  static constexpr auto channel = "xsettings";
  static constexpr auto property = "/Net/ThemeName";

  void appeared() override {
    listening_ = listen({xfconfPath, xfconf, "PropertyChanged"}, [this](const BusMessage& signal) {
      if (signal.signature == "ssv" && signal.arguments[0] == QLatin1String(channel) &&
          signal.arguments[1] == QLatin1String(property))
        learn(signal.arguments[2]);
    });
    const auto answered = [this](const BusMessage& reply) {
      if (!reply.isError && reply.signature == "v") learn(reply.arguments.constFirst());
    };
    call({xfconfPath, xfconf, "GetProperty"}, {answered}, "ss", channel, property);
  }

  void learn(const QVariant& value) {
    name_ = valueOf<QString>(value).value_or(QString());
    changed_();
  }

  const std::function<void()> changed_;
  QString name_;
  Registration listening_;
};

DesktopAppearance::DesktopAppearance(const std::shared_ptr<Bus>& sessionBus,
                                     std::shared_ptr<DesktopPortal> portal, std::filesystem::path settings)
    : portal_(std::move(portal)), settings_(std::move(settings)) {
  following_ = portal_->follow([this](bool ready) {
    listening_.clear();
    if (ready) read();
  });
  const QString desktop = qEnvironmentVariable("XDG_CURRENT_DESKTOP");
  if (desktop.contains(QLatin1String("KDE"))) portal_->want();  // nothing else tells its colours
  if (desktop.contains(QLatin1String("XFCE")))
    xfce_ = std::make_unique<XfceTheme>(sessionBus, [this] { adopt(); });
  QObject::connect(&watcher_, &QFileSystemWatcher::directoryChanged, &watcher_, [this] { readSettings(); });
  if (settings_.is_absolute()) readSettings();
}

DesktopAppearance::~DesktopAppearance() = default;

void DesktopAppearance::read() {
  const auto changed = [this](const BusMessage& signal) {
    if (!signal.signature.starts_with("ss") || signal.arguments.size() != 3) return;
    learn(signal.arguments[0].toString(), signal.arguments[1].toString(), signal.arguments[2]);
  };
  listening_.push_back(portal_->listen({DesktopPortal::path, interface, "SettingChanged"}, changed));
  for (const Setting& setting : settings) {
    const auto answered = [this, setting](const BusMessage& reply) {
      if (reply.isError || reply.signature != "v") return;
      learn(QLatin1String(setting.space), QLatin1String(setting.key), reply.arguments.constFirst());
    };
    listening_.push_back(
        portal_->ask({DesktopPortal::path, interface, "Read"}, answered, "ss", setting.space, setting.key));
  }
}

void DesktopAppearance::learn(const QString& space, const QString& key, const QVariant& value) {
  const bool asked = std::ranges::any_of(settings, [&](const Setting& setting) {
    return space == QLatin1String(setting.space) && key == QLatin1String(setting.key);
  });
  if (!asked) return;
  told_[key] = value;
  adopt();
}

/// The file is replaced with every change.
void DesktopAppearance::readSettings() {
  std::filesystem::path folder = settings_.parent_path();
  std::error_code error;
  while (!std::filesystem::is_directory(folder, error) && folder.has_relative_path())
    folder = folder.parent_path();
  if (const QString name = nameOf(folder); !watcher_.directories().contains(name)) {
    if (!watcher_.directories().isEmpty()) watcher_.removePaths(watcher_.directories());
    watcher_.addPath(name);
  }
  stored_.clear();
  if (QFile file(nameOf(settings_));
      std::filesystem::is_regular_file(settings_, error) && file.open(QFile::ReadOnly)) {
    const QVariantMap values = readDconf(file.read(largestFile));
    const auto take = [&](const Setting& setting) {
      const QVariant value = values.value(dconfPath(setting));
      if (value.isValid()) stored_[QLatin1String(setting.key)] = value;
    };
    std::ranges::for_each(settings, take);
    take(storedScheme);
  }
  adopt();
}

void DesktopAppearance::adopt() {
  const QVariantMap& known = told_.isEmpty() ? stored_ : told_;
  Appearance next;
  bool isNumber = false;
  const double duration =
      known.value(QStringLiteral("AnimationDurationFactor")).toString().toDouble(&isNumber);  // or a text
  next.reducedMotion = valueOf<uint>(known, "reduced-motion") == 1U ||
                       valueOf<bool>(known, "enable-animations") == false || (isNumber && duration == 0);
  // Desktops before the common setting have a theme for high contrast, in two colours.
  QString theme = valueOf<QString>(known, "gtk-theme").value_or(QString());
  if (xfce_ && !xfce_->name().isEmpty()) theme = xfce_->name();
  next.highContrast = valueOf<uint>(known, "contrast") == 1U ||
                      valueOf<bool>(known, "high-contrast") == true ||
                      theme.startsWith(QLatin1String("HighContrast"));
  // 1 is dark, 2 light, and 0 leaves it to the program.
  const auto scheme = valueOf<uint>(known, "color-scheme");
  const QString stored = valueOf<QString>(known, "color-scheme").value_or(QString());
  const bool isLight = scheme == 2U || stored == QLatin1String("prefer-light");
  const bool isDark =
      scheme == 1U || stored == QLatin1String("prefer-dark") || (!isLight && isDarkTheme(theme));
  next.dark = isDark || isLight ? std::optional(isDark) : std::nullopt;
  const auto scale = valueOf<double>(known, "text-scaling-factor");
  next.textScale = scale && *scale > 0 ? scale : appearance_.get().textScale;
  appearance_.assignIfChanged(next);
}

}  // namespace sentrel
