// One file of vCards as the contacts.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "pellor/linux/contacts/internal/ContactFolder.h"

namespace pellor {

/// The only entry is the file, by its name; its marks are those that it would have in a contacts folder. Nothing else
/// in its folder matters: it has no list of favorites beside it.
class ContactFile final : public CardSource {
 public:
  explicit ContactFile(const std::filesystem::path& path);

  std::string name() const override { return (_folder.path() / _file).string(); }
  std::string title() const override { return "the contacts file " + name(); }
  std::string cardTitle() const override { return _folder.cardTitle(); }
  std::string databaseUID() const override { return {}; }
  std::map<std::string, CardSignature> list() override;
  std::optional<CardSignature> signature(const std::string& card) override;
  CardContent read(const std::string& card) override { return _folder.read(card); }
  /// A file that is missing is waited for.
  std::unique_ptr<CardWatch> watch(std::function<void(const CardNews&)> handler) override;

 private:
  ContactFolder _folder;
  const std::string _file;
};

/// Whether the contacts at that path are one file: there is something other than a folder, or nothing and the name is
/// that of a contact's file.
bool isContactsFile(const std::filesystem::path& path);

/// The contacts at that path, a folder or a file.
std::shared_ptr<CardSource> contactsAt(const std::filesystem::path& path);

}  // namespace pellor
