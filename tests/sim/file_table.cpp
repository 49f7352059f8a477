// The test's own side of the simulated file system.
#include <algorithm>
#include <array>

#include "tests/sim/files.h"
#include "tests/sim/text.h"

namespace sim {
namespace {

constexpr std::size_t kPeriod = 65521;  // a prime: no alignment of blocks repeats the bytes

std::wstring clean(const std::wstring& path) {
  std::wstring result;
  for (const wchar_t character : path) {
    const wchar_t next = character == L'/' ? L'\\' : character;
    if (next != L'\\' || result.size() < 2 || result.back() != L'\\') {
      result += next;
    }
  }
  while (result.size() > 1 && result.back() == L'\\') {
    result.pop_back();
  }
  return result;
}

std::wstring key(const std::wstring& path) { return lowerCase(clean(path)); }

std::wstring parentOf(const std::wstring& path) {
  const std::wstring whole = clean(path);
  const auto cut = whole.rfind(L'\\');
  return cut == std::wstring::npos ? L"" : whole.substr(0, cut);
}

bool isRoot(const std::wstring& path) { return path.empty() || (path.size() == 2 && path[1] == L':'); }

}  // namespace

Files::Files(Kernel& kernel) : kernel_(kernel) {
  makeFolder(L"C:\\Windows\\System32");
  makeFolder(L"C:\\ProgramData");
}

Files::Node* Files::find(const std::wstring& path) {
  const auto found = nodes_.find(key(path));
  return found == nodes_.end() ? nullptr : &found->second;
}

const Files::Node* Files::find(const std::wstring& path) const { return const_cast<Files*>(this)->find(path); }

bool Files::hasFolder(const std::wstring& path) const {
  const Node* node = find(path);
  return isRoot(clean(path)) || (node != nullptr && node->content == nullptr);
}

bool Files::hasParent(const std::wstring& path) const { return hasFolder(parentOf(path)); }

bool Files::isEmptyFolder(const std::wstring& path) const {
  const auto next = nodes_.upper_bound(key(path) + L"\\");
  return next == nodes_.end() || !next->first.starts_with(key(path) + L"\\");
}

void Files::insert(const std::wstring& path, std::shared_ptr<FileContent> content) {
  nodes_[key(path)] = Node{clean(path), std::move(content)};
}

void Files::forget(const std::wstring& path) { nodes_.erase(key(path)); }

void Files::makeParents(const std::wstring& path) {
  const std::wstring parent = parentOf(path);
  if (!hasFolder(parent)) {
    makeParents(parent);
    insert(parent, nullptr);
  }
}

std::shared_ptr<FileContent> Files::make(const std::wstring& path) {
  makeParents(path);
  auto content = std::make_shared<FileContent>();
  insert(path, content);
  return content;
}

void Files::write(const std::wstring& path, std::string_view bytes) {
  const Guard guard(kernel_.mutex);
  const auto data = std::as_bytes(std::span(bytes));
  make(path)->data.assign(data.begin(), data.end());
}

void Files::append(const std::wstring& path, std::string_view bytes) {
  const Guard guard(kernel_.mutex);
  const Node* node = find(path);
  const auto content = node != nullptr && node->content != nullptr ? node->content : make(path);
  const auto data = std::as_bytes(std::span(bytes));
  content->data.insert(content->data.end(), data.begin(), data.end());
}

void Files::writeSparse(const std::wstring& path, std::uint64_t size) {
  const Guard guard(kernel_.mutex);
  const auto content = make(path);
  content->sparse = true;
  content->sparseSize = size;
}

void Files::resize(const std::wstring& path, std::uint64_t size) {
  const Guard guard(kernel_.mutex);
  if (Node* node = find(path); node != nullptr && node->content != nullptr) {
    if (node->content->sparse) {
      node->content->sparseSize = size;
    } else {
      node->content->data.resize(size);
    }
  }
}

void Files::makeFolder(const std::wstring& path) {
  const Guard guard(kernel_.mutex);
  makeParents(clean(path) + L"\\x");
}

void Files::erase(const std::wstring& path) {
  const Guard guard(kernel_.mutex);
  const std::wstring below = key(path) + L"\\";
  std::erase_if(nodes_, [&](const auto& entry) { return entry.first.starts_with(below); });
  forget(path);
}

bool Files::exists(const std::wstring& path) const {
  const Guard guard(kernel_.mutex);
  return hasFolder(path) || find(path) != nullptr;
}

bool Files::isFolder(const std::wstring& path) const {
  const Guard guard(kernel_.mutex);
  return hasFolder(path);
}

std::uint64_t Files::size(const std::wstring& path) const {
  const Guard guard(kernel_.mutex);
  const Node* node = find(path);
  return node == nullptr || node->content == nullptr ? 0 : node->content->size();
}

std::string Files::read(const std::wstring& path) const {
  const Guard guard(kernel_.mutex);
  const Node* node = find(path);
  std::string text;
  if (node != nullptr && node->content != nullptr) {
    text.resize(node->content->size());
    node->content->copy(0, std::as_writable_bytes(std::span(text)));
  }
  return text;
}

std::vector<std::wstring> Files::list(const std::wstring& folder) const {
  const Guard guard(kernel_.mutex);
  std::vector<std::wstring> paths;
  for (const auto& [name, node] : nodes_) {
    if (name.starts_with(key(folder) + L"\\")) {
      paths.push_back(node.path);
    }
  }
  return paths;
}

std::vector<std::string> Files::removed() const {
  const Guard guard(kernel_.mutex);
  return removed_;
}

std::byte Files::sparseByte(std::uint64_t offset) {
  return static_cast<std::byte>((offset % kPeriod * 2654435761u >> 11) & 0xFF);
}

std::size_t FileContent::copy(std::uint64_t offset, std::span<std::byte> buffer) const {
  static const auto* const pattern = [] {
    auto* bytes = new std::array<std::byte, kPeriod>;
    for (std::size_t i = 0; i < kPeriod; ++i) {
      (*bytes)[i] = Files::sparseByte(i);
    }
    return bytes;
  }();
  if (offset >= size()) {
    return 0;
  }
  const std::size_t count = static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), size() - offset));
  const std::byte* source = sparse ? pattern->data() : data.data();
  const std::size_t period = sparse ? kPeriod : data.size();
  for (std::size_t done = 0; done < count;) {
    const std::size_t from = static_cast<std::size_t>((offset + done) % period);
    const std::size_t part = std::min(count - done, period - from);
    std::copy_n(source + from, part, buffer.begin() + static_cast<std::ptrdiff_t>(done));
    done += part;
  }
  return count;
}

}  // namespace sim
