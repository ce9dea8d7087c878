#include "pellor/linux/contacts/internal/ContactFile.h"

#include <system_error>
#include <utility>

#include "pellor/linux/files/internal/FolderWatch.h"

namespace pellor {

namespace {

class ContactFileWatch final : public CardWatch {
 public:
  ContactFileWatch(const std::filesystem::path& folder, const std::string& file,
                   std::function<void(const CardNews&)> handler)
      : _watch(
            folder, [file](std::string_view name) { return name == file; },
            [handler = std::move(handler)](const FolderChange& change, const std::string& problem) {
              handler({change, false, problem});
            }) {}

 private:
  FolderWatch _watch;
};

}  // namespace

ContactFile::ContactFile(const std::filesystem::path& path)
    : _folder(normalisedFolder(path).parent_path()), _file(normalisedFolder(path).filename().string()) {}

std::map<std::string, CardSignature> ContactFile::list() {
  const auto found = _folder.signature(_file);
  if (!found) throw CardSourceError(title() + " does not exist", CardSourceError::Remedy::toldOf);
  return {{_file, *found}};
}

std::optional<CardSignature> ContactFile::signature(const std::string& card) {
  // A file that is away for a moment is no news of the contacts.
  return list().at(card);
}

std::unique_ptr<CardWatch> ContactFile::watch(std::function<void(const CardNews&)> handler) {
  return std::make_unique<ContactFileWatch>(_folder.path(), _file, std::move(handler));
}

bool isContactsFile(const std::filesystem::path& path) {
  std::error_code ignored;
  const auto type = std::filesystem::status(path, ignored).type();
  if (type == std::filesystem::file_type::not_found) return isContactFileName(path.filename().string());
  return type != std::filesystem::file_type::directory && type != std::filesystem::file_type::none;
}

std::shared_ptr<CardSource> contactsAt(const std::filesystem::path& path) {
  if (isContactsFile(path)) return std::make_shared<ContactFile>(path);
  return std::make_shared<ContactFolder>(path);
}

}  // namespace pellor
