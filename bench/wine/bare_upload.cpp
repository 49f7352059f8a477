// bare_upload put|append|append-asking URL FILE
//
// Sends the file as the program would, with the necessary WinHTTP calls alone:
//   put            one request, written in pieces of 4 MiB
//   append         a request that creates an append blob, then a new session for every block of 4 MiB
//   append-asking  as append, and asks the platform for proxies before every request, with the program's three calls
//
// As in the program, WinHTTP is asynchronous and each completion starts the next write. So the platform's threads and
// the switches between them are on both sides of a comparison. The exit code is 0 when every answer was 201.

#include <windows.h>

// After windows.h, which it needs.
#include <winhttp.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kBlock = std::size_t{4} << 20;
constexpr wchar_t kHeaders[] = L"Content-Type: application/zip\r\nx-ms-version: 2020-04-08\r\n";

struct Close {
  void operator()(HINTERNET handle) const { ::WinHttpCloseHandle(handle); }
};
using Handle = std::unique_ptr<void, Close>;

void demand(bool done, const char* what) {
  if (!done) {
    throw std::runtime_error(std::string(what) + " failed: " + std::to_string(::GetLastError()));
  }
}

/// Returns the owner of a handle. Throws when there is none.
Handle owned(HINTERNET handle, const char* what) {
  demand(handle != nullptr, what);
  return Handle(handle);
}

std::size_t readBlock(std::ifstream& file, std::vector<char>& block) {
  file.read(block.data(), static_cast<std::streamsize>(block.size()));
  return static_cast<std::size_t>(file.gcount());
}

/// One request, in a session of its own.
class Put {
 public:
  Put(const std::wstring& url, const std::wstring& query) {
    URL_COMPONENTS parts{};
    parts.dwStructSize = sizeof(parts);
    parts.dwHostNameLength = parts.dwUrlPathLength = static_cast<DWORD>(-1);
    demand(::WinHttpCrackUrl(url.c_str(), 0, 0, &parts), "WinHttpCrackUrl");
    const std::wstring host(parts.lpszHostName, parts.dwHostNameLength);
    const std::wstring target = parts.lpszUrlPath + query;
    session_ = owned(::WinHttpOpen(L"bare", WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY, nullptr, nullptr, WINHTTP_FLAG_ASYNC),
                     "WinHttpOpen");
    ::WinHttpSetStatusCallback(session_.get(), &Put::notify, WINHTTP_CALLBACK_FLAG_ALL_COMPLETIONS, 0);
    connection_ = owned(::WinHttpConnect(session_.get(), host.c_str(), parts.nPort, 0), "WinHttpConnect");
    request_ = owned(::WinHttpOpenRequest(connection_.get(), L"PUT", target.c_str(), nullptr, nullptr, nullptr,
                                          WINHTTP_FLAG_SECURE | WINHTTP_FLAG_BYPASS_PROXY_CACHE),
                     "WinHttpOpenRequest");
  }
  Put(const Put&) = delete;
  Put& operator=(const Put&) = delete;
  ~Put() { ::CloseHandle(done_); }

  /// Sends the body and then `left` bytes of the file, and waits for the answer. Throws when the answer is not 201.
  void run(const std::wstring& headers, std::span<char> body, std::uint64_t left, std::ifstream* file) {
    left_ = left;
    file_ = file;
    block_.resize(std::min<std::uint64_t>(left, kBlock));
    const auto size = static_cast<DWORD>(body.size());
    demand(::WinHttpSendRequest(request_.get(), (kHeaders + headers).c_str(), static_cast<DWORD>(-1), body.data(), size,
                                size + static_cast<DWORD>(left), reinterpret_cast<DWORD_PTR>(this)),
           "WinHttpSendRequest");
    ::WaitForSingleObject(done_, INFINITE);
    demand(status_ == 201, "the request");
  }

 private:
  static void CALLBACK notify(HINTERNET, DWORD_PTR context, DWORD status, void*, DWORD) {
    if (auto* const put = reinterpret_cast<Put*>(context); put != nullptr && !put->step(status)) {
      ::SetEvent(put->done_);
    }
  }

  /// Handles a completion. Returns false when the request has ended.
  bool step(DWORD status) {
    if (status == WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE || status == WINHTTP_CALLBACK_STATUS_WRITE_COMPLETE) {
      if (left_ == 0) {
        return ::WinHttpReceiveResponse(request_.get(), nullptr);
      }
      const std::size_t size = readBlock(*file_, block_);
      left_ -= size;
      return size != 0 && ::WinHttpWriteData(request_.get(), block_.data(), static_cast<DWORD>(size), nullptr);
    }
    DWORD length = sizeof(status_);
    if (status == WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE) {
      ::WinHttpQueryHeaders(request_.get(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER, nullptr, &status_,
                            &length, nullptr);
    }
    return false;
  }

  HANDLE done_ = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  std::uint64_t left_ = 0;
  std::ifstream* file_ = nullptr;
  std::vector<char> block_;
  DWORD status_ = 0;
  Handle session_, connection_, request_;
};

void askForProxies() {
  WINHTTP_CURRENT_USER_IE_PROXY_CONFIG user{};
  WINHTTP_PROXY_INFO own{};
  wchar_t* found = nullptr;
  ::WinHttpGetIEProxyConfigForCurrentUser(&user);
  ::WinHttpDetectAutoProxyConfigUrl(WINHTTP_AUTO_DETECT_TYPE_DHCP | WINHTTP_AUTO_DETECT_TYPE_DNS_A, &found);
  ::WinHttpGetDefaultProxyConfiguration(&own);
}

void appendBlocks(const std::wstring& url, std::ifstream& file, bool asking) {
  Put(url, L"").run(L"x-ms-blob-type: AppendBlob\r\n", {}, 0, nullptr);
  std::vector<char> block(kBlock);
  while (const std::size_t size = readBlock(file, block)) {
    if (asking) {
      askForProxies();
    }
    Put(url, L"&comp=appendblock").run(L"", std::span(block).first(size), 0, nullptr);
  }
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  try {
    demand(count == 4, "usage: bare_upload put|append|append-asking URL FILE; the call");
    const std::filesystem::path path = arguments[3];
    std::ifstream file(path, std::ios::binary);
    const std::wstring how = arguments[1];
    if (how == L"put") {
      Put(arguments[2], L"").run(L"x-ms-blob-type: BlockBlob\r\n", {}, std::filesystem::file_size(path), &file);
    } else {
      appendBlocks(arguments[2], file, how == L"append-asking");
    }
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bare_upload: %s\n", error.what());
    return 1;
  }
}
