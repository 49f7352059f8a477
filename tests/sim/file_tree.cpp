// The tree of simulated files, and what a test does with it.
#include "tests/sim/file_handles.h"
#include "tests/sim/text.h"

namespace sim {

std::wstring keyOf(const std::wstring& path) {
  std::wstring key;
  for (const wchar_t character : path) {
    const wchar_t next = character == L'/' ? L'\\' : lowerCase(character);
    if (next != L'\\' || key.size() < 2 || key.back() != L'\\') {
      key += next;
    }
  }
  key.resize(std::max(key.find_last_not_of(L'\\') + 1, std::min<std::size_t>(key.size(), 1)));
  return key;
}

std::wstring parentOf(const std::wstring& path) {
  const std::wstring key = keyOf(path);
  const auto cut = key.rfind(L'\\');
  return cut == std::wstring::npos ? L"" : key.substr(0, cut);
}

std::wstring nameOf(const std::wstring& path) { return path.substr(path.find_last_of(L"\\/") + 1); }

namespace {

constexpr std::size_t kPeriod = 65521;  // a prime, so that no alignment of blocks repeats the bytes

}  // namespace

std::byte Files::sparseByte(std::uint64_t offset) {
  return static_cast<std::byte>((offset % kPeriod * 2654435761u >> 11) & 0xFF);
}

std::size_t FileContent::copy(std::uint64_t offset, std::span<std::byte> buffer) const {
  static const auto pattern = [] {
    std::vector<std::byte> bytes;
    for (std::size_t i = 0; i < kPeriod; ++i) {
      bytes.push_back(Files::sparseByte(i));
    }
    return bytes;
  }();
  const std::vector<std::byte>& source = sparseSize ? pattern : data;
  const std::uint64_t rest = size() - std::min(offset, size());
  const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), rest));
  for (std::size_t done = 0; done < count;) {
    const auto from = static_cast<std::size_t>((offset + done) % source.size());
    const std::size_t part = std::min(count - done, source.size() - from);
    std::copy_n(source.data() + from, part, buffer.data() + done);
    done += part;
  }
  return count;
}

Files::Files(Kernel& kernel) : kernel_(kernel) {
  makeFolders(L"C:\\Windows\\System32\\WindowsPowerShell\\v1.0");
  makeFolders(L"C:\\ProgramData");
}

Files::Content Files::find(const std::wstring& path) const {
  const auto found = entries_.find(keyOf(path));
  return found == entries_.end() || (found->second != nullptr && found->second->deleted) ? nullptr : found->second;
}

Files::Content Files::findFor(std::uint32_t needs, const std::wstring& path, std::uint32_t share) const {
  refuseIf(hasFolder(path), kErrorAccessDenied);
  refuseIf(!hasFolder(parentOf(path)), kErrorPathNotFound);
  const auto content = find(path);
  const auto collides = [&](const OpenFile* open) {
    return (needs & ~open->share) != 0 || (open->needs & ~share) != 0;
  };
  refuseIf(content != nullptr && std::ranges::any_of(content->opens, collides), kErrorSharingViolation);
  return content;
}

bool Files::hasFolder(const std::wstring& path) const {
  const std::wstring key = keyOf(path);
  const bool isRoot = key.empty() || (key.size() == 2 && key[1] == L':');
  const auto found = entries_.find(key);
  return isRoot || (found != entries_.end() && found->second == nullptr);
}

std::vector<std::wstring> Files::below(const std::wstring& folder) const {
  const std::wstring start = keyOf(folder) + L"\\";
  std::vector<std::wstring> paths;
  for (auto entry = entries_.lower_bound(start); entry != entries_.end() && entry->first.starts_with(start); ++entry) {
    if (entry->second == nullptr || !entry->second->deleted) {
      paths.push_back(entry->first);
    }
  }
  return paths;
}

void Files::makeFolders(const std::wstring& path) {
  if (!hasFolder(path)) {
    makeFolders(parentOf(path));
    entries_[keyOf(path)] = nullptr;
  }
}

Files::Content Files::make(const std::wstring& path) {
  makeFolders(parentOf(path));
  const auto content = std::make_shared<FileContent>();
  content->name = nameOf(path);
  return entries_[keyOf(path)] = content;
}

// For the test.

void Files::write(const std::wstring& path, std::string_view bytes) {
  const Guard guard(kernel_.mutex);
  const auto data = std::as_bytes(std::span(bytes));
  make(path)->data.assign(data.begin(), data.end());
}

void Files::writeSparse(const std::wstring& path, std::uint64_t size) {
  const Guard guard(kernel_.mutex);
  make(path)->sparseSize = size;
}

void Files::resize(const std::wstring& path, std::uint64_t size) {
  const Guard guard(kernel_.mutex);
  const auto content = find(path);
  if (content->sparseSize) {
    content->sparseSize = size;
  } else {
    content->data.resize(size);
  }
}

void Files::erase(const std::wstring& path) {
  const Guard guard(kernel_.mutex);
  std::ranges::for_each(below(path), [&](const std::wstring& entry) { entries_.erase(entry); });
  entries_.erase(keyOf(path));
}

bool Files::exists(const std::wstring& path) const {
  const Guard guard(kernel_.mutex);
  return hasFolder(path) || find(path) != nullptr;
}

std::string Files::read(const std::wstring& path) const {
  const Guard guard(kernel_.mutex);
  std::string text;
  if (const auto content = find(path)) {
    text.resize(content->size());
    content->copy(0, std::as_writable_bytes(std::span(text)));
  }
  return text;
}

std::vector<std::wstring> Files::list(const std::wstring& folder) const {
  const Guard guard(kernel_.mutex);
  return below(folder);
}

std::wstring Files::descriptorOf(const std::wstring& folder) const {
  const Guard guard(kernel_.mutex);
  const auto found = descriptors_.find(keyOf(folder));
  return found == descriptors_.end() ? L"" : found->second;
}

}  // namespace sim
