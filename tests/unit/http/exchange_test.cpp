#include <chrono>

#include "tests/unit/http/http_test.h"

// Whole exchanges that reach the server, in every way WinHTTP may deliver its notifications.

namespace {

constexpr std::uint64_t kMiB = 1u << 20;

class ExchangeTest : public HttpTest {
 protected:
  static sim::HttpReply created() {
    sim::HttpReply reply;
    reply.status = 201;
    reply.headers = L"x-answer: caf\x00E9\r\n";
    reply.body = "an answer";
    reply.pieces = {4, 1, 4};
    return reply;
  }

  /// Bytes without a short period, so that a chunk sent twice or out of order shows.
  static std::string content(std::uint64_t size) {
    std::string out(size, '\0');
    for (std::uint64_t i = 0; i < size; ++i) {
      out[i] = static_cast<char>((i * 2654435761U) >> 13);
    }
    return out;
  }
};

TEST_F(ExchangeTest, EveryAsynchronousMethodInEveryDelivery) {
  struct Row {
    const wchar_t* verb;
    std::string body;
    std::function<bool(TestRequest&, HttpCompletion)> start;
  };
  const Row rows[] = {
      {L"GET", "", [](TestRequest& r, HttpCompletion c) { return r.getAsync(kUrl, c); }},
      {L"POST", "in", [](TestRequest& r, HttpCompletion c) { return r.postAsync(ContentType::kXml, kUrl, "in", c); }},
      {L"PUT", "by",
       [](TestRequest& r, HttpCompletion c) {
         return r.putAsync(ContentType::kZip, kUrl, std::as_bytes(std::span("bytes")), 2, c);
       }},
      {L"PUT", "", [](TestRequest& r, HttpCompletion c) { return r.putStringAsync(ContentType::kZip, kUrl, "", c); }},
      {L"PUT", "from a file",
       [](TestRequest& r, HttpCompletion c) { return r.putFileAsync(ContentType::kZip, kUrl, "C:\\\xC3\xA9.zip", c); }},
      {L"DELETE", "", [](TestRequest& r, HttpCompletion c) { return r.performAsync(HttpMethod::kDelete, kUrl, c); }},
      {L"GET", "",
       [](TestRequest& r, HttpCompletion c) { return r.performAsync(static_cast<HttpMethod>(4), kUrl, c); }},
  };
  for (const sim::Delivery delivery : kDeliveries) {
    for (const Row& row : rows) {
      World world;
      world.windows.winHttp.delivery = delivery;
      world.windows.winHttp.onRequest([](const sim::HttpExchange&) { return created(); });
      world.windows.files.write(L"C:\\\x00E9.zip", "from a file");
      EXPECT_TRUE(row.start(*world.request, world.completions.function()));
      world.settle();
      EXPECT_EQ(world.completions.count(), 1);
      EXPECT_EQ(world.completions.status(), 201U);
      EXPECT_TRUE(world.completions.success());
      EXPECT_EQ(world.completions.body(), "an answer");
      EXPECT_NE(world.completions.headers().find("\r\nx-answer: caf\xC3\xA9\r\n"), std::string::npos);
      EXPECT_EQ(world.exchange().verb, row.verb);
      EXPECT_EQ(world.exchange().body, row.body);
      EXPECT_EQ(world.exchange().totalLength, row.body.size());
      EXPECT_TRUE(world.log.has(CORE::kDebug, L"WinHttpRequest::CheckHeaders(): HTTP status code received: 201"));
      EXPECT_EQ(world.errors(), Errors());
      EXPECT_EQ(world.log.count(L"Request did not complete"), 0U);
    }
  }
}

TEST_F(ExchangeTest, EverySynchronousMethod) {
  struct Row {
    const wchar_t* verb;
    std::string body;
    std::function<bool(TestRequest&, std::string&)> run;
  };
  const Row rows[] = {
      {L"GET", "", [](TestRequest& r, std::string& out) { return r.get(kUrl, out); }},
      {L"POST", "in", [](TestRequest& r, std::string& out) { return r.post(ContentType::kCsv, kUrl, "in", out); }},
      {L"PUT", "in", [](TestRequest& r, std::string& out) { return r.put(ContentType::kCsv, kUrl, "in", out); }},
      {L"PUT", "file",
       [](TestRequest& r, std::string& out) { return r.putFile(ContentType::kCsv, kUrl, "C:\\f.zip", out); }},
      {L"DELETE", "", [](TestRequest& r, std::string& out) { return r.deleteRequest(kUrl, out); }},
  };
  for (const sim::Delivery delivery : {sim::Delivery::kWorker, sim::Delivery::kInline}) {
    for (const Row& row : rows) {
      World world;
      world.windows.winHttp.delivery = delivery;
      world.windows.winHttp.onRequest([](const sim::HttpExchange&) { return created(); });
      world.windows.files.write(L"C:\\f.zip", "file");
      std::string response = "old";
      EXPECT_TRUE(row.run(*world.request, response));
      EXPECT_EQ(response, "an answer");
      EXPECT_EQ(world.exchange().verb, row.verb);
      EXPECT_EQ(world.exchange().body, row.body);
    }
  }
}

TEST_F(ExchangeTest, SuccessIsTwoHundredToTwoHundredNinetyNine) {
  for (const auto& [status, success] :
       {std::pair(199U, false), {200U, true}, {299U, true}, {300U, false}, {403U, false}}) {
    World world;
    world.windows.winHttp.onRequest([status = status](const sim::HttpExchange&) {
      auto reply = created();
      reply.status = status;
      return reply;
    });
    std::string response;
    EXPECT_EQ(world.request->get(kUrl, response), success) << status;
    EXPECT_EQ(response, "an answer") << "handed out whatever the status";
    EXPECT_EQ(world.request->getResponseCode(), status);
  }
}

TEST_F(ExchangeTest, FilesGoOutInChunksOfFourMiB) {
  struct Row {
    std::uint64_t size;
    std::vector<std::uint64_t> writes;
  };
  const Row rows[] = {
      {0, {}},
      {1, {1}},
      {4 * kMiB - 1, {4 * kMiB - 1}},
      {4 * kMiB, {4 * kMiB}},
      {4 * kMiB + 1, {4 * kMiB, 1}},
      {8 * kMiB, {4 * kMiB, 4 * kMiB}},
  };
  for (const sim::Delivery delivery : kDeliveries) {
    for (const Row& row : rows) {
      World world;
      world.windows.winHttp.delivery = delivery;
      const std::string bytes = content(row.size);
      world.windows.files.write(L"C:\\b.zip", bytes);
      EXPECT_TRUE(world.request->putFileAsync(ContentType::kZip, kUrl, "C:\\b.zip", world.completions.function()));
      world.settle();
      EXPECT_EQ(world.completions.count(), 1);
      EXPECT_TRUE(world.completions.success()) << row.size;
      EXPECT_EQ(world.exchange().writes, row.writes) << row.size;
      EXPECT_EQ(world.exchange().totalLength, row.size);
      EXPECT_TRUE(world.exchange().body == bytes) << row.size;
    }
  }
}

TEST_F(ExchangeTest, FileThatChangesWhileItIsSent) {
  for (const std::uint64_t after : {5 * kMiB, 9 * kMiB}) {
    World world;
    const std::string bytes = content(8 * kMiB);
    world.windows.files.write(L"C:\\b.zip", bytes);
    world.request->onFinalize = [&](TestRequest&) { world.windows.files.resize(L"C:\\b.zip", after); };
    EXPECT_TRUE(world.request->putFileAsync(ContentType::kZip, kUrl, "C:\\b.zip", world.completions.function()));
    world.settle();
    EXPECT_EQ(world.completions.count(), 1);
    if (after > bytes.size()) {
      EXPECT_TRUE(world.completions.success());
      EXPECT_TRUE(world.exchange().body == bytes) << "as much as was promised";
    } else {
      EXPECT_FALSE(world.completions.success());
      EXPECT_EQ(world.exchange().writes, std::vector<std::uint64_t>({4 * kMiB})) << "no short chunk follows";
      EXPECT_EQ(world.errors(), Errors({L"WinHttpRequest::UploadData(): File stream is invalid"}));
    }
  }
}

TEST_F(ExchangeTest, HugeRepliesInLinearTimeAndFlatStack) {
  for (const sim::Delivery delivery : {sim::Delivery::kInline, sim::Delivery::kWorker}) {
    World world;
    world.windows.winHttp.delivery = delivery;
    world.windows.winHttp.onRequest([](const sim::HttpExchange&) {
      sim::HttpReply reply;
      reply.repeatedBody = 100 * kMiB;
      reply.headers = L"x-long: " + std::wstring(kMiB, L'h') + L"\r\n";
      reply.pieces.assign(1000, 64 * 1024);
      return reply;
    });
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(world.request->getAsync(kUrl, world.completions.function()));
    world.settle();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
    EXPECT_EQ(world.completions.body().size(), 100 * kMiB);
    EXPECT_GT(world.completions.headers().size(), kMiB);
  }
}

TEST_F(ExchangeTest, EarlyAnswerIsAnOrdinaryEnd) {
  for (const bool error : {false, true}) {
    World world;
    world.windows.files.write(L"C:\\b.zip", content(8 * kMiB));
    world.windows.winHttp.onHeaders([error](const sim::HttpExchange&) -> std::optional<sim::HttpReply> {
      auto reply = created();
      reply.status = 403;
      if (error) {
        reply.failure = sim::HttpFailure{sim::HttpStage::kWrite, 12030, 4 * kMiB};
      }
      return reply;
    });
    EXPECT_TRUE(world.request->putFileAsync(ContentType::kZip, kUrl, "C:\\b.zip", world.completions.function()));
    world.settle();
    EXPECT_EQ(world.completions.count(), 1);
    EXPECT_FALSE(world.completions.success());
    EXPECT_EQ(world.completions.status(), error ? 0U : 403U);
  }
}

TEST_F(ExchangeTest, RequestDiesInsideItsCompletion) {
  for (const sim::Delivery delivery : kDeliveries) {
    World world;
    world.windows.winHttp.delivery = delivery;
    bool alive = true;
    bool aliveAtTheEnd = false;
    bool cancelled = false;
    world.request->onDestroyed = [&] { alive = false; };
    TestRequest* const raw = world.request.get();
    EXPECT_TRUE(raw->getAsync(kUrl, [&](HttpRequest* request, const std::string&) {
      world.request = nullptr;
      cancelled = request->cancelRequest();  // comes back at once: the handles are gone
      EXPECT_EQ(request->getResponseCode(), 200U);
      aliveAtTheEnd = alive;
    }));
    world.settle();
    EXPECT_TRUE(aliveAtTheEnd);
    EXPECT_TRUE(cancelled);
    EXPECT_FALSE(alive) << "nothing holds it any longer";
  }
}

TEST_F(ExchangeTest, CompletionThatOwnsItsRequestOrThrows) {
  World world;
  bool alive = true;
  world.request->onDestroyed = [&] { alive = false; };
  EXPECT_TRUE(world.request->getAsync(kUrl, [owner = world.request](HttpRequest*, const std::string&) {
    throw CORE::coreException(L"out of the completion");
  }));
  world.settle();
  EXPECT_EQ(world.errors(),
            Errors({L"WinHttpRequest::RequestCallback(): Exception in a callback: out of the completion"}));
  world.request = nullptr;
  EXPECT_FALSE(alive) << "the function, and what it owns, is dropped after the call";
}

TEST_F(ExchangeTest, ChainOfRequestsEachStartedByTheOneBefore) {
  for (const sim::Delivery delivery : kDeliveries) {
    World world;
    world.windows.winHttp.delivery = delivery;
    constexpr std::size_t kLength = 20;
    std::shared_ptr<TestRequest> current = TestRequest::create();
    std::size_t done = 0;
    HttpCompletion next = [&](HttpRequest* request, const std::string&) {
      EXPECT_TRUE(request->isSuccess());
      current = TestRequest::create();
      if (++done < kLength) {
        EXPECT_TRUE(current->putStringAsync(ContentType::kZip, kUrl, "block", next));
      }
    };
    const auto first = current;
    EXPECT_TRUE(first->putStringAsync(ContentType::kZip, kUrl, "block", next));
    world.settle();
    EXPECT_EQ(done, kLength);
    EXPECT_EQ(world.windows.winHttp.sentRequests().size(), kLength);
  }
}

}  // namespace
