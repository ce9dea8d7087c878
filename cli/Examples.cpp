#include "cli/Examples.h"

#include <algorithm>

namespace pellor::cli {
namespace {

struct Example {
  std::string_view command;
  std::string_view line;
};

constexpr Example Examples[] = {
    {"", "pellor --region DE list"},
    {"", "pellor add \"Jörg Mühlgrab\""},
    {"list", "pellor list"},
    {"list", "pellor list --lines | grep +49"},
    {"list", "pellor list --json"},
    {"find", "pellor find \"030 1234567\""},
    {"find", "pellor find ann@example.org"},
    {"add", "pellor add \"Jörg Mühlgrab\" +493023125001"},
    {"add", "pellor add anna#2"},
    {"add", "grep -h ^FN: team/*.vcf | cut -d: -f2 | pellor add -"},
    {"remove", "pellor remove 2:5"},
    {"remove", "pellor remove 2:5 --dry-run"},
    {"remove", "pellor remove \"Jörg Mühlgrab\" anna#2"},
    {"move", "pellor move Jörg 1:1"},
    {"title", "pellor title 2 Family"},
    {"title", "pellor title 2 \"\""},
    {"purge", "pellor purge"},
    {"history", "pellor history"},
    {"history", "pellor history --clear"},
    {"undo", "pellor undo"},
    {"undo", "pellor undo 3f9a01 --dry-run"},
    {"redo", "pellor redo"},
    {"forget", "pellor forget \"Jörg Mühlgrab\" --dry-run"},
    {"forget", "pellor forget +493023125001 --yes"},
    {"why", "pellor why Jörg"},
    {"number", "pellor number Jörg \"0151 2345679\""},
    {"number", "pellor number Jörg --clear"},
    {"reply-as", "pellor reply-as Jörg me@work.example.org"},
    {"reply-as", "pellor reply-as Jörg --clear"},
    {"meta", "pellor meta Jörg birthday 05-17"},
    {"meta", "pellor meta Jörg"},
    {"contacts", "pellor contacts muhl"},
    {"contacts", "pellor contacts \"0151 234\""},
    {"contacts import", "pellor contacts import phone.vcf"},
    {"contacts import", "pellor contacts import --replace work.csv home.csv"},
    {"contacts import", "cat team/*.vcf | pellor contacts import -"},
    {"allow", "pellor allow \"Jörg Mühlgrab\""},
    {"refresh", "pellor refresh"},
    {"refresh", "pellor refresh --accept"},
    {"favorites", "pellor favorites"},
    {"favorites list", "pellor favorites list"},
    {"favorites add", "pellor favorites add \"Jörg Mühlgrab\""},
    {"favorites remove", "pellor favorites remove 3"},
    {"favorites import", "pellor favorites import"},
    {"favorites move", "pellor favorites move 3 1"},
    {"settings", "pellor settings"},
    {"settings", "pellor settings page-size 12"},
    {"settings", "pellor settings region DE"},
    {"settings", "pellor settings short-names on"},
    {"status", "pellor status Jörg --requery"},
    {"watch", "pellor watch --json"},
    {"export", "pellor export ~/friends.json"},
    {"export", "pellor export | gzip >~/friends.json.gz"},
    {"import", "pellor import ~/friends.json"},
    {"import", "pellor import --replace --dry-run ~/friends.json"},
    {"import", "zcat ~/friends.json.gz | pellor import -"},
    {"backup", "pellor backup"},
    {"backup restore", "pellor backup restore 2026-11-22T12-30"},
    {"device", "pellor device status"},
    {"device pair", "pellor device pair --name phone"},
    {"device serve", "pellor device serve"},
    {"device status", "pellor device status"},
    {"device revoke", "pellor device revoke"},
    {"doctor", "pellor doctor"},
    {"doctor", "pellor doctor --keys"},
    {"help", "pellor help add"},
    {"help", "pellor help services"},
    {"help", "pellor help who"},
    {"completion", "pellor completion bash >~/.local/share/bash-completion/completions/pellor"},
    {"completion", "pellor completion fish >~/.config/fish/completions/pellor.fish"},
};

}  // namespace

std::vector<std::string> examplesOf(std::string_view command) {
  std::vector<std::string> lines;
  for (const Example& example : Examples) {
    if (example.command == command) lines.emplace_back(example.line);
  }
  return lines;
}

}  // namespace pellor::cli
