#include "pellor/linux/phone/CanonicalFormStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "pellor/linux/files/internal/PrivatePlace.h"
#include "pellor/linux/phone/LibPhoneNumber.h"

namespace pellor {
namespace {

constexpr char Separator = '\t';
constexpr std::size_t CheckSize = 4;

std::string firstLineFor(std::string_view name, std::string_view region) {
  return std::string(name) + " " + std::to_string(KeptFormsVersion) + " " + std::string(region) + " " +
         phoneLibraryVersion() + "\n";
}

std::array<char, CheckSize> checkOf(std::string_view fields) {
  std::uint64_t hash = hashOf(fields);
  std::array<char, CheckSize> check{};
  for (char& digit : check) {
    digit = "0123456789abcdef"[hash >> 60];
    hash <<= 4;
  }
  return check;
}

std::string lineOf(std::string_view text, std::string_view form) {
  std::string line(text);
  if (form != text) (line += Separator) += form;
  const auto check = checkOf(line);
  line += Separator;
  line.append(check.data(), check.size());
  return line += '\n';
}

bool isControl(char character) { return static_cast<unsigned char>(character) < ' '; }
bool isDigit(char character) { return character >= '0' && character <= '9'; }

bool isKept(std::string_view text, std::string_view form) {
  return std::ranges::any_of(form, isDigit) && std::ranges::none_of(text, isControl) &&
         std::ranges::none_of(form, isControl) && text.find('@') == std::string_view::npos;
}

/// The size of a file that nobody else could write; absent for any other file.
std::optional<std::size_t> sizeOf(const OpenedFile& file) {
  struct stat found {};
  if (!file.descriptor || file.wasOpenToOthers || ::fstat(file.descriptor.get(), &found) != 0) return std::nullopt;
  return static_cast<std::size_t>(found.st_size);
}

/// A file without some of its lines.
struct ContentWithout {
  std::string rest;
  std::size_t count = 0;  ///< of those lines
};

ContentWithout contentWithout(const std::filesystem::path& file, const CanonicalFormStore::IsTheirs& isTheirs) {
  const std::string content = PrivateFile(file).read().text.value_or("");
  ContentWithout result{content.substr(0, content.find('\n') + 1)};
  for (std::string_view left = std::string_view(content).substr(result.rest.size()); !left.empty();) {
    const std::string_view line = left.substr(0, std::min(left.find('\n'), left.size() - 1) + 1);
    left.remove_prefix(line.size());
    const std::string_view fields = line.substr(0, line.rfind(Separator));
    const std::size_t end = fields.find(Separator);
    const bool hasForm = end != std::string_view::npos;
    const bool isOne = isTheirs(fields.substr(0, end)) || (hasForm && isTheirs(fields.substr(end + 1)));
    if (isOne) ++result.count;
    if (!isOne) result.rest += line;
  }
  return result;
}

std::string readAt(const FileDescriptor& file, std::size_t offset, std::size_t size) {
  std::string content(size, '\0');
  const ssize_t count = ::pread(file.get(), content.data(), size, static_cast<off_t>(offset));
  content.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
  return content;
}

}  // namespace

std::shared_ptr<CanonicalFormStore> CanonicalFormStore::open(std::string region,
                                                             std::optional<CanonicalFormFolder> folder) {
  // Forms of an unknown library could not be told from those of the next one.
  if (folder && phoneLibraryVersion().empty()) folder.reset();
  return std::make_shared<CanonicalFormStore>(Passkey{}, std::move(region), std::move(folder));
}

CanonicalFormStore::CanonicalFormStore(Passkey, std::string region, std::optional<CanonicalFormFolder> folder)
    : _region(std::move(region)),
      _folder(std::move(folder)),
      _file(_folder ? _folder->folder / (_folder->name + "-" + fileNameOf(_region)) : ""),
      _firstLine(_folder ? firstLineFor(_folder->name, _region) : "") {
  if (_folder) read();
}

void CanonicalFormStore::read() {
  const OpenedFile file = PrivateFile(_file).open(O_RDONLY);
  const auto size = sizeOf(file);
  if (!size || *size > LargestFile) return;
  const std::string content = readAt(file.descriptor, 0, *size);
  if (!content.starts_with(_firstLine)) return;
  std::string_view rest = std::string_view(content).substr(_firstLine.size());
  std::vector<std::pair<std::string_view, std::string_view>> forms;
  forms.reserve(static_cast<std::size_t>(std::ranges::count(rest, '\n')));
  // What does not end in a line end is being written or was torn.
  for (auto end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
    if (const auto form = readLine(rest.substr(0, end))) forms.push_back(*form);
    rest.remove_prefix(end + 1);
  }
  _forms.add(forms);
}

std::optional<std::pair<std::string_view, std::string_view>> CanonicalFormStore::readLine(std::string_view line) {
  if (line.size() <= CheckSize + 1) return std::nullopt;
  const std::string_view fields = line.substr(0, line.size() - CheckSize - 1);
  const auto check = checkOf(fields);
  if (line.substr(fields.size() + 1) != std::string_view(check.data(), check.size())) return std::nullopt;
  const std::size_t end = fields.find(Separator);
  return std::pair{fields.substr(0, end), end == std::string_view::npos ? fields : fields.substr(end + 1)};
}

void CanonicalFormStore::add(std::string_view text, std::string_view form) {
  if (!isKept(text, form) || !_forms.add(text, form) || !_folder) return;
  {
    const MutexLock lock(_mutex);
    if (_hasFailed) return;
    _unwritten += lineOf(text, form);
    if (std::exchange(_isWriteQueued, true)) return;
  }
  _folder->later([self = shared_from_this()] { self->writeUnwritten(); });
}

std::string CanonicalFormStore::takeUnwritten() {
  const MutexLock lock(_mutex);
  _isWriteQueued = false;
  return std::exchange(_unwritten, "");
}

void CanonicalFormStore::writeUnwritten() {
  const std::string lines = takeUnwritten();
  if (append(lines)) return;
  const auto error = PrivateFile(_file).replace(_firstLine + lines);
  if (!error) return;
  _folder->log.log("%@ are not kept: %@", _folder->name, *error);
  const MutexLock lock(_mutex);
  _hasFailed = true;
}

std::size_t CanonicalFormStore::count(const std::filesystem::path& file, const IsTheirs& isTheirs) {
  return contentWithout(file, isTheirs).count;
}

std::optional<std::string> CanonicalFormStore::remove(const std::filesystem::path& file, const IsTheirs& isTheirs) {
  const ContentWithout content = contentWithout(file, isTheirs);
  return content.count > 0 ? PrivateFile(file).replace(content.rest) : std::nullopt;
}

// In one write, so that lines of several processes do not mix.
bool CanonicalFormStore::append(const std::string& lines) const {
  const OpenedFile opened = PrivateFile(_file).open(O_RDWR | O_APPEND);
  const FileDescriptor& file = opened.descriptor;
  const auto size = sizeOf(opened);
  if (!size || *size > LargestFile || readAt(file, 0, _firstLine.size()) != _firstLine) return false;
  const bool isTorn = readAt(file, *size - 1, 1) != "\n";
  const std::string written = isTorn ? "\n" + lines : lines;
  return ::write(file.get(), written.data(), written.size()) == static_cast<ssize_t>(written.size());
}

}  // namespace pellor
