#include "pellor/linux/Configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "tests/linux/TemporaryFolder.h"

namespace pellor {
namespace {

using testing::StartsWith;
using testing::ThrowsMessage;

class ConfigurationTest : public testing::Test {
 protected:
  Configuration read(const std::string& content) {
    writeFile(_file, content);
    return Configuration::read(_file);
  }

  const TemporaryFolder _folder;
  const std::filesystem::path _file = Configuration::fileIn(_folder.path());
};

TEST_F(ConfigurationTest, ArgumentsHoldBeforeTheFileAndTheFileBeforeDefaults) {
  const Configuration unset = Configuration::read(_file);
  EXPECT_EQ(unset.text("domain"), "org.tapnote.TN");
  EXPECT_EQ(unset.path("contacts"), std::nullopt);
  EXPECT_FALSE(unset.choosesServices());

  Configuration configuration =
      read("# mine\ndomain = 'org.example'\ncontacts = 'cards'\nregion = 'de'\nbus = 'session'\n");
  EXPECT_EQ(configuration.text("domain"), "org.example");
  EXPECT_EQ(configuration.path("contacts"), _folder / "cards") << "beside the file";
  EXPECT_EQ(configuration.text("region"), "DE");
  EXPECT_TRUE(configuration.isSet("bus"));
  EXPECT_TRUE(configuration.choosesServices());

  configuration.set("bus", "folder");
  configuration.set("contacts", "cards");
  EXPECT_EQ(configuration.path("contacts"), std::filesystem::current_path() / "cards");
  EXPECT_FALSE(configuration.choosesServices());

  EXPECT_EQ(unset.text("service"), std::nullopt);
  const Configuration others = read("store = 'postgresql'\nreachability = 'ldap'\n[eds]\nwait = 0.5\n");
  EXPECT_EQ(others.text("bus"), "postgresql") << "the store's, unless the user says otherwise";
  EXPECT_EQ(others.text("service"), "ldap");
  EXPECT_EQ(others.seconds("eds.wait"), 0.5);
}

TEST_F(ConfigurationTest, WhatMakesNoSenseIsNamedWithItsPlace) {
  const std::string file = _file.string();
  const std::pair<const char*, std::string> cases[] = {
      {"domain = ", file + ":1: "},
      {"\ncolour = 'red'", file + ":2: there is no key \"colour\" (pellor doctor lists the keys)"},
      {"[bus]\nkind = 'session'", file + ":2: there is no key \"bus.kind\" (pellor doctor lists the keys)"},
      {"bus = 'pigeon'", file + ":1: bus has to be one of folder, session, postgresql"},
      {"region = 'ZZ'", file + ":1: region has to be a region such as DE"},
      {"domain = 'a'\n[= 1", file + ": it is no TOML"},
      {"domain = [}]", file + ": it is no TOML"},
      {"domain = 'ä' # ä\nähre = 1", file + ":2: "},
      {"domain = \"ä\\\"ä\"\n[ü]", file + ": it is no TOML"},
      {"domain = '''ä\nä'ä''''' # ä\nx = é", file + ":3: "},
      {"domain = 1979-05-27\"aé\"", file + ":1: "},
      {"region = tru\nx", file + ":1: Error while parsing boolean: expected 'true', saw 'tru '"},
  };
  for (const auto& [content, expected] : cases)
    EXPECT_THAT(([&, text = content] { read(text); }), ThrowsMessage<ConfigurationError>(StartsWith(expected)));

  std::filesystem::remove(_file);
  std::filesystem::create_directory(_file);
  EXPECT_THAT([&] { Configuration::read(_file); },
              ThrowsMessage<ConfigurationError>("the configuration cannot be read: " + file + " is no regular file"));
}

}  // namespace
}  // namespace pellor
