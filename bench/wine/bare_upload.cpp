// bare_upload put|append URL FILE: sends the file as the program would, with nothing but the WinHTTP calls that it
// takes: one request in writes of 4 MiB, or an append blob's creation and then a new session for every block of 4 MiB.
// The calls are synchronous: no thread changes between two writes, so this is as fast as the platform lets anybody be.
// The exit code is 0 when every answer was 201.

#include <windows.h>

// After windows.h, which it needs.
#include <winhttp.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
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

Handle held(HINTERNET handle, const char* what) {
  demand(handle != nullptr, what);
  return Handle(handle);
}

/// One request of a session of its own, up to its status.
class Put {
 public:
  Put(const std::wstring& url, const std::wstring& query) {
    URL_COMPONENTS parts{};
    parts.dwStructSize = sizeof(parts);
    parts.dwHostNameLength = parts.dwUrlPathLength = parts.dwExtraInfoLength = static_cast<DWORD>(-1);
    demand(::WinHttpCrackUrl(url.c_str(), 0, 0, &parts), "WinHttpCrackUrl");
    const std::wstring host(parts.lpszHostName, parts.dwHostNameLength);
    const std::wstring target = parts.lpszUrlPath + query;  // the path runs on into the query
    session_ = held(::WinHttpOpen(L"bare", WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY, nullptr, nullptr, 0), "WinHttpOpen");
    connection_ = held(::WinHttpConnect(session_.get(), host.c_str(), parts.nPort, 0), "WinHttpConnect");
    request_ = held(::WinHttpOpenRequest(connection_.get(), L"PUT", target.c_str(), nullptr, nullptr, nullptr,
                                         WINHTTP_FLAG_SECURE | WINHTTP_FLAG_BYPASS_PROXY_CACHE),
                    "WinHttpOpenRequest");
  }

  void send(const std::wstring& headers, char* body, std::size_t size, std::uint64_t total) {
    demand(::WinHttpSendRequest(request_.get(), (kHeaders + headers).c_str(), static_cast<DWORD>(-1), body,
                                static_cast<DWORD>(size), static_cast<DWORD>(total), 0),
           "WinHttpSendRequest");
  }

  void write(const char* data, std::size_t size) {
    DWORD written = 0;
    demand(::WinHttpWriteData(request_.get(), data, static_cast<DWORD>(size), &written) && written == size,
           "WinHttpWriteData");
  }

  void finish() {
    demand(::WinHttpReceiveResponse(request_.get(), nullptr), "WinHttpReceiveResponse");
    DWORD status = 0;
    DWORD size = sizeof(status);
    demand(::WinHttpQueryHeaders(request_.get(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER, nullptr,
                                 &status, &size, nullptr) &&
               status == 201,
           "the request");
  }

 private:
  Handle session_, connection_, request_;
};

std::size_t readBlock(std::ifstream& file, std::vector<char>& block) {
  file.read(block.data(), static_cast<std::streamsize>(block.size()));
  return static_cast<std::size_t>(file.gcount());
}

void putWhole(const std::wstring& url, std::ifstream& file, std::uint64_t total) {
  Put put(url, L"");
  put.send(L"x-ms-blob-type: BlockBlob\r\n", nullptr, 0, total);
  std::vector<char> block(kBlock);
  while (const std::size_t size = readBlock(file, block)) {
    put.write(block.data(), size);
  }
  put.finish();
}

void appendBlocks(const std::wstring& url, std::ifstream& file) {
  Put creation(url, L"");
  creation.send(L"x-ms-blob-type: AppendBlob\r\n", nullptr, 0, 0);
  creation.finish();
  std::vector<char> block(kBlock);
  while (const std::size_t size = readBlock(file, block)) {
    Put put(url, L"&comp=appendblock");
    put.send(L"", block.data(), size, size);
    put.finish();
  }
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  try {
    demand(count == 4, "usage: bare_upload put|append URL FILE; this");
    const std::filesystem::path path = arguments[3];
    std::ifstream file(path, std::ios::binary);
    if (arguments[1] == std::wstring(L"put")) {
      putWhole(arguments[2], file, std::filesystem::file_size(path));
    } else {
      appendBlocks(arguments[2], file);
    }
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bare_upload: %s\n", error.what());
    return 1;
  }
}
