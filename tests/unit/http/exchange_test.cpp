#include <chrono>

#include "core/exception.h"
#include "tests/unit/http/http_test.h"

// Whole exchanges that reach the server, in every way WinHTTP may deliver its notifications.

namespace {

/// Bytes without a short period, so that a chunk sent twice or out of order shows.
std::string content(std::uint64_t size) {
  std::string out(size, '\0');
  for (std::uint64_t i = 0; i < size; ++i) {
    out[i] = static_cast<char>((i * 2654435761U) >> 13);
  }
  return out;
}

std::span<const std::byte> bytes(std::string_view text) { return std::as_bytes(std::span(text)); }

TEST(ExchangeTest, EveryMethodInEveryDelivery) {
  struct Row {
    const wchar_t* verb;
    std::string body;
    std::uint32_t status;
    int completions;  // none: it waits for the end itself
    std::function<bool(World&)> run;
  };
  const Row rows[] = {
      {L"GET", "", 200, 1, [](World& w) { return w.get(); }},
      {L"POST", "in", 200, 1, [](World& w) { return w.request->postAsync(kZip, kUrl, "in", w.completion()); }},
      {L"PUT", "by", 200, 1,
       [](World& w) { return w.request->putAsync(kZip, kUrl, bytes("bytes"), 2, w.completion()); }},
      {L"PUT", "few", 200, 1,
       [](World& w) { return w.request->putAsync(kZip, kUrl, bytes("few"), 4, w.completion()); }},
      {L"PUT", "", 200, 1, [](World& w) { return w.request->putStringAsync(kZip, kUrl, "", w.completion()); }},
      {L"PUT", "bundle", 200, 1, [](World& w) { return w.putFile(); }},
      {L"DELETE", "", 200, 1,
       [](World& w) { return w.request->performAsync(HttpMethod::kDelete, kUrl, w.completion()); }},
      {L"GET", "", 200, 1, [](World& w) { return w.request->performAsync(HttpMethod{4}, kUrl, w.completion()); }},
      {L"GET", "", 199, 0, [](World& w) { return w.request->get(kUrl, w.body); }},
      {L"POST", "in", 200, 0, [](World& w) { return w.request->post(kZip, kUrl, "in", w.body); }},
      {L"PUT", "in", 299, 0, [](World& w) { return w.request->put(kZip, kUrl, "in", w.body); }},
      {L"PUT", "bundle", 300, 0, [](World& w) { return w.request->putFile(kZip, kUrl, kPath, w.body); }},
      {L"DELETE", "", 403, 0, [](World& w) { return w.request->deleteRequest(kUrl, w.body); }},
  };
  for (const sim::Delivery delivery : kDeliveries) {
    for (const Row& row : rows) {
      if (row.completions == 0 && delivery == sim::Delivery::kLate) {
        continue;  // nobody could let it come
      }
      for (const bool early : {false, true}) {
        World world(delivery);
        world.early = early;
        world.reply.status = row.status;
        const bool success = row.status >= 200 && row.status <= 299;
        EXPECT_EQ(row.run(world), success) << row.status;
        world.settle();
        EXPECT_EQ(world.completions, row.completions);
        EXPECT_EQ(world.request->getResponseCode(), row.status);
        EXPECT_EQ(world.request->isSuccess(), success) << row.status;
        EXPECT_EQ(world.body, "an answer") << "handed out whatever the status";
        std::string headers;
        world.request->getResponseHeaders(headers);
        EXPECT_NE(headers.find("\r\nx-answer: caf\xC3\xA9\r\n"), std::string::npos);
        EXPECT_EQ(world.exchange().verb, row.verb);
        EXPECT_EQ(world.exchange().body, row.body);
        EXPECT_EQ(world.exchange().totalLength, row.body.size());
        EXPECT_EQ(world.errors(), Errors());
        EXPECT_TRUE(world.log.has(CORE::kDebug, L"WinHttpRequest::CheckHeaders(): HTTP status code received: " +
                                                    std::to_wstring(row.status)));
        EXPECT_EQ(world.log.count(L"Request did not complete"), 0U);
        EXPECT_EQ(world.log.count(L"putAsync(): Size of outgoing buffer is smaller than the given length"),
                  row.body == "few" ? 1U : 0U);
      }
    }
  }
}

TEST(ExchangeTest, ALentBufferLivesWhileTheRequestDoes) {
  World world(sim::Delivery::kLate);
  const std::string sent = content(1000);
  auto buffer = std::make_shared<std::string>(sent);
  const std::weak_ptr<std::string> seen = buffer;
  world.request->lendBody(buffer);
  EXPECT_TRUE(world.request->putAsync(kZip, kUrl, bytes(*buffer), buffer->size(), world.completion()));
  buffer.reset();  // WinHTTP has not read it yet
  world.settle();
  EXPECT_EQ(world.exchange().body, sent);
  EXPECT_FALSE(seen.expired());
  world.request = nullptr;
  EXPECT_TRUE(seen.expired());
}

TEST(ExchangeTest, FilesGoOutInChunksOfFourMiB) {
  struct Row {
    std::uint64_t size, sizeAtTheSend;
    std::vector<std::uint64_t> writes;
  };
  const Row rows[] = {
      {0, 0, {}},
      {1, 1, {1}},
      {4 * kMiB - 1, 4 * kMiB - 1, {4 * kMiB - 1}},
      {4 * kMiB, 4 * kMiB, {4 * kMiB}},
      {4 * kMiB + 1, 4 * kMiB + 1, {4 * kMiB, 1}},
      {8 * kMiB, 9 * kMiB, {4 * kMiB, 4 * kMiB}},  // as much as was promised
      {8 * kMiB, 5 * kMiB, {4 * kMiB}},            // no short chunk follows
  };
  for (const sim::Delivery delivery : kDeliveries) {
    for (const Row& row : rows) {
      World world(delivery);
      const std::string file = content(row.size);
      world.windows.files.write(kWidePath, file);
      world.request->onFinalize = [&](TestRequest&) { world.windows.files.resize(kWidePath, row.sizeAtTheSend); };
      EXPECT_TRUE(world.putFile());
      world.settle();
      const bool complete = row.sizeAtTheSend >= row.size;
      EXPECT_EQ(world.completions, 1);
      EXPECT_EQ(world.request->isSuccess(), complete) << row.size;
      EXPECT_EQ(world.exchange().writes, row.writes) << row.size;
      EXPECT_EQ(world.exchange().totalLength, row.size);
      if (complete) {
        EXPECT_TRUE(world.exchange().body == file) << row.size;
      } else {
        EXPECT_EQ(world.errors(), Errors({L"WinHttpRequest::UploadData(): File stream is invalid"}));
      }
    }
  }
}

TEST(ExchangeTest, HugeRepliesInLinearTimeAndFlatStack) {
  for (const sim::Delivery delivery : {sim::Delivery::kInline, sim::Delivery::kWorker}) {
    World world(delivery);
    world.reply.repeatedBody = 100 * kMiB;
    world.reply.headers = L"x-long: " + std::wstring(kMiB, L'h') + L"\r\n";
    world.reply.pieces.assign(1000, 64 * 1024);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(world.get());
    world.settle();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
    EXPECT_EQ(world.body.size(), 100 * kMiB);
    std::string headers;
    world.request->getResponseHeaders(headers);
    EXPECT_GT(headers.size(), kMiB);
  }
}

TEST(ExchangeTest, CompletionsThatDropTheirRequestAndStartTheNext) {
  constexpr int kLength = 20;
  for (const sim::Delivery delivery : kDeliveries) {
    World world(delivery);
    int done = 0;
    std::weak_ptr<TestRequest> last;
    const HttpCompletion next = [&](HttpRequest* request, const std::string&) {
      const std::weak_ptr<TestRequest> self = last = world.request;
      world.request = TestRequest::create();
      EXPECT_TRUE(request->cancelRequest()) << "comes back at once: the handles are gone";
      EXPECT_EQ(request->getResponseCode(), 200U);
      if (++done < kLength) {
        EXPECT_TRUE(world.request->putStringAsync(kZip, kUrl, "block", next));
      }
      EXPECT_FALSE(self.expired()) << "it lives to the end of its completion";
    };
    TestRequest* const first = world.request.get();
    EXPECT_TRUE(first->putStringAsync(kZip, kUrl, "block", next));
    world.settle();
    EXPECT_EQ(done, kLength);
    EXPECT_EQ(world.windows.winHttp.sentRequests().size(), kLength);
    EXPECT_TRUE(last.expired()) << "nothing holds it any longer";
  }
}

TEST(ExchangeTest, CompletionThatOwnsItsRequestAndThrows) {
  World world;
  const std::weak_ptr<TestRequest> watched = world.request;
  EXPECT_TRUE(world.request->getAsync(kUrl, [owner = world.request](HttpRequest*, const std::string&) {
    throw CORE::coreException(L"out of the completion");
  }));
  world.settle();
  EXPECT_EQ(world.errors(),
            Errors({L"WinHttpRequest::RequestCallback(): Exception in a callback: out of the completion"}));
  world.request = nullptr;
  EXPECT_TRUE(watched.expired()) << "the function, and what it owns, is dropped after the call";
}

}  // namespace
