// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/autostart_login_item.h"

#include <gmock/gmock.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace sentrel {
namespace {

using namespace Qt::StringLiterals;
using testing::HasSubstr;
using testing::Optional;

class AutostartLoginItemTest : public testing::Test {
 protected:
  [[nodiscard]] QString path() const {
    return config.filePath(u"autostart/expert.mardeck.sentrel.desktop"_s);
  }
  void write(const char* text) const {
    QDir().mkpath(config.filePath(u"autostart"_s));
    QFile file(path());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text);
  }
  [[nodiscard]] std::string text() const {
    QFile file(path());
    return file.open(QIODevice::ReadOnly) ? file.readAll().toStdString() : std::string();
  }

  QTemporaryDir config;
  AutostartLoginItem item{config.path(), u"/opt/a \"b\" $c\\d%/sentrel"_s};
};

TEST_F(AutostartLoginItemTest, ReadsWhatDesktopsRead) {
  EXPECT_FALSE(item.isEnabled());
  const struct {
    const char* text;
    bool enabled;
  } cases[] = {
      {"[Desktop Entry]\nExec=sentrel\n", true},
      {"[Desktop Entry]\n Hidden = true \nExec=sentrel\n", false},
      {"[Desktop Entry]\nExec=sentrel\nX-GNOME-Autostart-enabled=false\n", false},
      {"[Desktop Entry]\nExec=sentrel\n[Desktop Action x]\nHidden=true\n", true},
  };
  for (const auto& [content, enabled] : cases) {
    write(content);
    EXPECT_EQ(item.isEnabled(), enabled) << content;
  }
}

TEST_F(AutostartLoginItemTest, EnablesOverAHiddenEntryAndDisables) {
  write("[Desktop Entry]\nHidden=true\n");
  EXPECT_EQ(item.setEnabled(true), std::nullopt);
  EXPECT_TRUE(item.isEnabled());
  // Quoted for the Exec line, then escaped as a value of the file.
  EXPECT_THAT(text(), HasSubstr("\nExec=\"/opt/a \\\\\"b\\\\\" \\\\$c\\\\\\\\d%%/sentrel\"\n"));
  EXPECT_EQ(item.setEnabled(false), std::nullopt);
  EXPECT_FALSE(item.isEnabled());
  EXPECT_FALSE(QFile::exists(path()));
  ASSERT_TRUE(QDir(config.path()).rmdir(u"autostart"_s));
  ASSERT_TRUE(QFile(config.filePath(u"autostart"_s)).open(QIODevice::WriteOnly));
  EXPECT_THAT(item.setEnabled(true), Optional(HasSubstr("autostart"))) << "why it cannot be written";
}

}  // namespace
}  // namespace sentrel
