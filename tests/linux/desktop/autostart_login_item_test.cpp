// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/autostart_login_item.h"

#include <gmock/gmock.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <map>

namespace sentrel {
namespace {

using namespace Qt::StringLiterals;
using testing::HasSubstr;

TEST(AutostartLoginItem, ReadsAndWritesWhatDesktopsRead) {
  const QTemporaryDir config;
  const QString path = config.filePath(u"autostart/expert.mardeck.sentrel.desktop"_s);
  AutostartLoginItem item(config.path(), u"/opt/a \"b\" $c\\d%/sentrel"_s);
  EXPECT_FALSE(item.isEnabled());
  EXPECT_EQ(item.setEnabled(true), std::nullopt);
  EXPECT_TRUE(item.isEnabled());
  QFile file(path);
  ASSERT_TRUE(file.open(QIODevice::ReadWrite));
  // Quoted for the Exec line, then escaped as a value of the file.
  EXPECT_THAT(file.readAll().toStdString(),
              HasSubstr("\nExec=\"/opt/a \\\\\"b\\\\\" \\\\$c\\\\\\\\d%%/sentrel\"\n"));
  const std::map<std::string, bool> cases{
      {"[Desktop Entry]\nExec=sentrel\n[Desktop Action x]\nHidden=true\n", true},
      {"[Desktop Entry]\nExec=sentrel\nX-GNOME-Autostart-enabled=false\n", false},
      {"[Desktop Entry]\n Hidden = true \nExec=sentrel\n", false},
  };
  for (const auto& [content, enabled] : cases) {
    file.resize(0);
    file.seek(0);
    file.write(content.c_str());
    file.flush();
    EXPECT_EQ(item.isEnabled(), enabled) << content;
  }
  EXPECT_EQ(item.setEnabled(true), std::nullopt);
  EXPECT_TRUE(item.isEnabled()) << "no longer hidden";
  EXPECT_EQ(item.setEnabled(false), std::nullopt);
  EXPECT_FALSE(QFile::exists(path));
  ASSERT_TRUE(QDir(config.path()).rmdir(u"autostart"_s));
  ASSERT_TRUE(QFile(config.filePath(u"autostart"_s)).open(QIODevice::WriteOnly));
  EXPECT_THAT(item.setEnabled(true), testing::Optional(HasSubstr("autostart"))) << "why it cannot be written";
}

}  // namespace
}  // namespace sentrel
