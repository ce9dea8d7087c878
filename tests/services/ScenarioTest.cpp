// One story, told to the program with the parts of the embedded platform and with services in their places: the list is
// the same each time.

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/cli/Program.h"
#include "tests/services/EDSService.h"
#include "tests/services/PostgreSQLCluster.h"

namespace pellor {
namespace {

using Json = nlohmann::json;
using Arguments = std::vector<std::string>;

/// Contacts and store of one user, and the flags that choose them.
class Setting {
 public:
  virtual ~Setting() = default;
  virtual Arguments flags() { return {}; }
  /// Puts a contact into the address book; `lines` are those of its card beside the name.
  virtual void add(const std::string& person, const std::string& name, const std::string& lines) {
    _home.addContact(person, name, lines);
  }
  virtual void rename(const std::string& person, const std::string& name, const std::string& lines) {
    add(person, name, lines);
  }
  virtual void remove(const std::string& person) {
    std::filesystem::remove(_home.contactsFolder() / (person + ".vcf"));
  }
  Home& home() { return _home; }

 private:
  Home _home;
};

/// Both are shared by all tests of the program.
PostgreSQLCluster& cluster() {
  static PostgreSQLCluster cluster;
  return cluster;
}

class InPostgreSQL : public Setting {
 public:
  Arguments flags() override { return {"--store", "postgresql", "--postgresql-connection", _connection}; }

 private:
  const std::string _connection = cluster().connection(cluster().makeDatabase());
};

class InEDS : public Setting {
 public:
  InEDS() {
    EDSService::shared().removeAll();
    home().setVariable("DBUS_SESSION_BUS_ADDRESS=" + EDSService::shared().address());
  }
  Arguments flags() override { return {"--address-book", "eds", "--eds-wait", "60"}; }
  void add(const std::string& person, const std::string& name, const std::string& lines) override {
    _uids[person] = EDSService::shared().add({card("", name, lines)}).front();
  }
  void rename(const std::string& person, const std::string& name, const std::string& lines) override {
    EDSService::shared().change(card("UID:" + _uids.at(person) + "\r\n", name, lines));
  }
  void remove(const std::string& person) override { EDSService::shared().remove(_uids.at(person)); }

 private:
  static std::string card(const std::string& uid, const std::string& name, const std::string& lines) {
    return "BEGIN:VCARD\r\nVERSION:3.0\r\n" + uid + "FN:" + name + "\r\n" + lines + "END:VCARD\r\n";
  }

  std::map<std::string, std::string> _uids;
};

class Story {
 public:
  explicit Story(Setting& setting) : _setting(setting) {}

  void run(Arguments arguments) {
    const ProgramResult result = call(std::move(arguments));
    EXPECT_EQ(result.exitCode, 0) << result.errors;
  }
  /// The whole list without GUIDs, and the names in it for the eyes.
  void look(const std::string& expected) {
    const ProgramResult result = call({"list", "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    Json list = Json::parse(result.output);
    std::string names;
    for (Json& page : list["pages"]) {
      for (Json& slot : page["slots"]) {
        names += slot.is_null() ? "." : slot["name"].is_null() ? "#" : slot["name"].get<std::string>();
        names += " ";
        if (!slot.is_null() && !slot["guid"].is_null()) slot["guid"] = "known";
      }
      names += "/ ";
    }
    EXPECT_EQ(names, expected);
    lists.push_back(std::move(list));
  }

  std::vector<Json> lists;

 private:
  ProgramResult call(Arguments arguments) {
    for (std::string& flag : _setting.flags()) arguments.push_back(std::move(flag));
    return pellor(_setting.home(), arguments);
  }

  Setting& _setting;
};

std::vector<Json> tell(Setting& setting) {
  const std::string mark = "X-FOLKS-FAVOURITE:true\r\n";
  const std::string ben = "N:Berg;Ben;;;\r\nTEL:+49 30 1234567\r\nEMAIL:Ben@example.org\r\n";
  const std::string cy = "N:Low;Cy;;;\r\nTEL:030 7654321\r\n";
  setting.add("ann", "Ann Lee", "N:Lee;Ann;;;\r\nTEL:+1 415 555 2671\r\n" + mark);
  setting.add("ben", "Ben Berg", ben);
  setting.add("cy", "Cy Low", cy);

  Story story(setting);
  story.run({"settings", "page-size", "3"});
  story.look("Ann Lee . . / . . . / ");
  story.run({"add", "Ben Berg", "Cy Low", "+49 30 1112233"});
  story.look("Ann Lee Ben Berg Cy Low / # . . / . . . / ");
  story.run({"move", "Cy Low", "2:3"});
  story.run({"title", "2", "Work"});
  story.look("Ann Lee Ben Berg . / # . Cy Low / . . . / ");

  setting.rename("ben", "Benedikt Berg", "N:Berg;Benedikt;;;\r\n" + ben.substr(ben.find("TEL")));
  story.look("Ann Lee Benedikt Berg . / # . Cy Low / . . . / ");
  setting.remove("cy");
  story.look("Ann Lee Benedikt Berg . / # . Cy Low / . . . / ");
  setting.add("cy again", "Cyril Low", "N:Low;Cyril;;;\r\nTEL:+49 30 765-4321\r\n");
  story.look("Ann Lee Benedikt Berg . / # . Cyril Low / . . . / ");
  story.run({"remove", "Ann Lee"});
  story.look(". Benedikt Berg . / # . Cyril Low / . . . / ");
  return std::move(story.lists);
}

TEST(Scenario, TheListIsTheSameWhateverKeepsTheContactsAndTheList) {
  Setting embedded;
  const std::vector<Json> expected = tell(embedded);
  InPostgreSQL inPostgreSQL;
  EXPECT_EQ(tell(inPostgreSQL), expected);
  InEDS inEDS;
  EXPECT_EQ(tell(inEDS), expected);
}

TEST(Scenario, AnEditOnOneMachineIsOnTheOther) {
  InPostgreSQL first;
  const Home second;
  const Arguments flags = first.flags();
  const auto with = [&flags](Arguments arguments) {
    arguments.insert(arguments.end(), flags.begin(), flags.end());
    return arguments;
  };
  Program watch(second, pellorCommand(with({"watch"})));
  EXPECT_EQ(watch.readErrorLine(), "pellor: watching");
  ASSERT_EQ(pellor(first.home(), with({"add", "+49 30 1112233"})).exitCode, 0);
  EXPECT_EQ(watch.readLine(), "added 1:1 030 1112233");
  watch.sendSignal(SIGINT);
  EXPECT_EQ(watch.finish().exitCode, 0);
}

}  // namespace
}  // namespace pellor
