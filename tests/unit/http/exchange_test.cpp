#include "core/exception.h"
#include "tests/unit/http/http_test.h"

// Whole exchanges that reach the server, in every way WinHTTP may deliver its notifications.

namespace {

const std::span<const std::byte> kFew = std::as_bytes(std::span("few", 3));

TEST(ExchangeTest, EveryMethodInEveryDelivery) {
  using W = World;
  struct Row {
    const wchar_t* verb;
    std::string body;
    std::uint32_t status;
    int completions;  // none: it waits for the end itself
    bool (*run)(World&);
  };
  const Row rows[] = {
      {L"GET", "", 200, 1, [](W& w) { return w.get(); }},
      {L"POST", "in", 200, 1, [](W& w) { return w.request->postAsync(kZip, kUrl, "in", w.completion()); }},
      {L"PUT", "fe", 200, 1, [](W& w) { return w.request->putAsync(kZip, kUrl, kFew, 2, w.completion()); }},
      {L"PUT", "few", 200, 1, [](W& w) { return w.request->putAsync(kZip, kUrl, kFew, 4, w.completion()); }},
      {L"PUT", "", 200, 1, [](W& w) { return w.request->putStringAsync(kZip, kUrl, "", w.completion()); }},
      {L"PUT", "bundle", 200, 1, [](W& w) { return w.putFile(); }},
      {L"DELETE", "", 200, 1, [](W& w) { return w.request->performAsync(HttpMethod::kDelete, kUrl, w.completion()); }},
      {L"GET", "", 200, 1, [](W& w) { return w.request->performAsync(HttpMethod{4}, kUrl, w.completion()); }},
      {L"GET", "", 199, 0, [](W& w) { return w.request->get(kUrl, w.body); }},
      {L"POST", "in", 200, 0, [](W& w) { return w.request->post(kZip, kUrl, "in", w.body); }},
      {L"PUT", "in", 299, 0, [](W& w) { return w.request->put(kZip, kUrl, "in", w.body); }},
      {L"PUT", "bundle", 300, 0, [](W& w) { return w.request->putFile(kZip, kUrl, kPath, w.body); }},
      {L"DELETE", "", 403, 0, [](W& w) { return w.request->deleteRequest(kUrl, w.body); }},
  };
  for (const sim::Delivery delivery : kDeliveries) {
    for (const Row& row : rows) {
      for (const bool early : {false, true}) {
        if (row.completions == 0 && delivery == sim::Delivery::kLate) {
          continue;  // nobody could let it come
        }
        World world(delivery);
        world.early = early;
        world.reply.status = row.status;
        const bool success = row.status >= 200 && row.status <= 299;
        EXPECT_EQ(row.run(world), success) << row.status;
        world.settle();
        EXPECT_EQ(world.completions, row.completions);
        EXPECT_EQ(world.request->getResponseCode(), row.status);
        EXPECT_EQ(world.body, "an answer") << "handed out whatever the status";
        std::string headers;
        world.request->getResponseHeaders(headers);
        EXPECT_NE(headers.find("\r\nx-answer: caf\xC3\xA9\r\n"), std::string::npos);
        EXPECT_EQ(world.exchange().verb, row.verb);
        EXPECT_EQ(world.exchange().body, row.body);
        EXPECT_EQ(world.exchange().totalLength, row.body.size());
        EXPECT_EQ(world.errors(), Errors());
        EXPECT_EQ(world.log.count(L"WinHttpRequest::CheckHeaders(): HTTP status code received: " +
                                  std::to_wstring(row.status)),
                  1U);
        EXPECT_EQ(world.log.count(L"Request did not complete"), 0U);
        EXPECT_EQ(world.log.count(L"putAsync(): Size of outgoing buffer is smaller than the given length"),
                  row.body == "few" ? 1U : 0U);
      }
    }
  }
}

TEST(ExchangeTest, ALentBufferLivesWhileTheRequestDoes) {
  World world(sim::Delivery::kLate);
  const std::string sent(1000, 'b');
  auto buffer = std::make_shared<std::string>(sent);
  const std::weak_ptr<std::string> seen = buffer;
  world.request->lendBody(buffer);
  EXPECT_TRUE(world.request->putAsync(kZip, kUrl, std::as_bytes(std::span(*buffer)), 1000, world.completion()));
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
      {4 * kMiB, 4 * kMiB, {4 * kMiB}},
      {4 * kMiB + 1, 4 * kMiB + 1, {4 * kMiB, 1}},
      {8 * kMiB, 9 * kMiB, {4 * kMiB, 4 * kMiB}},  // as much as was promised
      {8 * kMiB, 5 * kMiB, {4 * kMiB}},            // no short chunk follows
  };
  for (const sim::Delivery delivery : kDeliveries) {
    for (const Row& row : rows) {
      World world(delivery);
      world.windows.files.writeSparse(kWidePath, row.size);
      world.request->onFinalize = [&](TestRequest&) { world.windows.files.resize(kWidePath, row.sizeAtTheSend); };
      EXPECT_TRUE(world.putFile());
      world.settle();
      const bool complete = row.sizeAtTheSend >= row.size;
      EXPECT_EQ(world.request->isSuccess(), complete) << row.size;
      EXPECT_EQ(world.exchange().writes, row.writes) << row.size;
      EXPECT_EQ(world.errors(),
                complete ? Errors() : Errors({L"WinHttpRequest::UploadData(): File stream is invalid"}));
    }
  }
}

TEST(ExchangeTest, CompletionThatOwnsItsRequestGetsAHugeReplyAndThrows) {
  for (const sim::Delivery delivery : kDeliveries) {
    World world(delivery);
    world.reply.repeatedBody = 64 * kMiB;
    world.reply.pieces.assign(1000, 64 * 1024);  // a stack that grows with each would not be enough
    const std::weak_ptr<TestRequest> watched = world.request;
    EXPECT_TRUE(world.request->getAsync(kUrl, [owner = world.request](HttpRequest* self, const std::string& body) {
      EXPECT_EQ(body.size(), 64 * kMiB);
      EXPECT_TRUE(self->cancelRequest()) << "comes back at once: the handles are gone";
      throw CORE::coreException(L"out of the completion");
    }));
    world.request = nullptr;
    world.settle();
    EXPECT_EQ(world.errors(),
              Errors({L"WinHttpRequest::RequestCallback(): Exception in a callback: out of the completion"}));
    EXPECT_TRUE(watched.expired()) << "the function, and what it owns, is dropped after the call";
  }
}

}  // namespace
