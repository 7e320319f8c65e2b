#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "agent/http/HttpClient.h"
#include "authoring/serve/HttpConditions.h"
#include "authoring/serve/StaticServer.h"
#include "support/RepositoryServer.h"

namespace zelor::agent {
namespace {

TEST(HttpConditionsTest, RangesAndConditionsSelectTheBytes) {
    const authoring::FileVersion file{100, 784111777, "\"v1\""};
    const std::string date = "Sun, 06 Nov 1994 08:49:37 GMT";
    const std::string older = "Sun, 06 Nov 1994 08:49:36 GMT";
    struct Case {
        authoring::RequestConditions asked;
        authoring::Selection selection;
        std::uint64_t offset;
        std::uint64_t length;
    };
    const Case cases[] = {
        {{"", "", "", ""}, authoring::Selection::whole, 0, 100},
        {{"bytes=0-9", "", "", ""}, authoring::Selection::part, 0, 10},
        {{"bytes=90-", "", "", ""}, authoring::Selection::part, 90, 10},
        {{"bytes=90-500", "", "", ""}, authoring::Selection::part, 90, 10},
        {{"bytes=-30", "", "", ""}, authoring::Selection::part, 70, 30},
        {{"bytes=-300", "", "", ""}, authoring::Selection::part, 0, 100},
        {{"bytes=-0", "", "", ""}, authoring::Selection::unsatisfiable, 0, 0},
        {{"bytes=100-", "", "", ""}, authoring::Selection::unsatisfiable, 0, 0},
        {{"bytes=9-0", "", "", ""}, authoring::Selection::whole, 0, 100},
        {{"bytes=-", "", "", ""}, authoring::Selection::whole, 0, 100},
        {{"bytes=0-1,3-4", "", "", ""}, authoring::Selection::whole, 0, 100},
        {{"bytes=99999999999999999999-", "", "", ""}, authoring::Selection::whole, 0, 100},
        {{"lines=0-9", "", "", ""}, authoring::Selection::whole, 0, 100},
        {{"bytes=5-9", "\"v1\"", "", ""}, authoring::Selection::part, 5, 5},
        {{"bytes=5-9", date, "", ""}, authoring::Selection::part, 5, 5},
        {{"bytes=5-9", "\"v2\"", "", ""}, authoring::Selection::whole, 0, 100},
        {{"bytes=5-9", "W/\"v1\"", "", ""}, authoring::Selection::whole, 0, 100},
        {{"bytes=5-9", older, "", ""}, authoring::Selection::whole, 0, 100},
        {{"", "", "\"v1\"", ""}, authoring::Selection::notModified, 0, 0},
        {{"", "", "\"v0\", W/\"v1\"", ""}, authoring::Selection::notModified, 0, 0},
        {{"", "", "*", ""}, authoring::Selection::notModified, 0, 0},
        {{"", "", "\"v0\"", date}, authoring::Selection::whole, 0, 100},
        {{"", "", "", date}, authoring::Selection::notModified, 0, 0},
        {{"", "", "", older}, authoring::Selection::whole, 0, 100},
        {{"", "", "", "yesterday"}, authoring::Selection::whole, 0, 100},
    };
    for (const Case& one : cases) {
        const authoring::Answer answer = authoring::selectAnswer(one.asked, file);
        const std::string what = one.asked.range + one.asked.ifRange + one.asked.ifNoneMatch;
        EXPECT_EQ(answer.selection, one.selection) << what;
        EXPECT_EQ(answer.offset, one.offset) << what;
        EXPECT_EQ(answer.length, one.length) << what;
    }
}

struct StaticServerTest : testing::Test {
    test::TempDir outside;
    test::RepositoryServer server;
    HttpClient client;
    std::string body;

    HttpResult get(const std::string& path) {
        body.clear();
        HttpRequest request;
        request.url = server.url() + path;
        request.onBody = [this](std::string_view piece) {
            body += piece;
            return true;
        };
        return client.perform(request);
    }
};

TEST_F(StaticServerTest, NothingOutsideTheDirectoryIsServed) {
    test::writeFile(outside / "secret", "secret");
    server.publish("a b/plain", "plain");
    server.publish(".hidden", "hidden");
    EXPECT_EQ(::symlink((outside / "secret").c_str(), server.path("link").c_str()), 0);
    EXPECT_EQ(::symlink(outside.path().c_str(), server.path("linked").c_str()), 0);
    EXPECT_EQ(::mkfifo(server.path("fifo").c_str(), 0600), 0);
    EXPECT_EQ(get("/a%20b//plain").head.status, 200);
    EXPECT_EQ(body, "plain");
    for (const std::string path :
         {"/", "/a%20b", "/a%20b/", "/link", "/linked/secret", "/.hidden", "/fifo", "/a%20b/%2e%2e/.hidden",
          "/a%20b%2fplain", "/a%20b/plain%00", "/%zz", "/a%2"}) {
        EXPECT_EQ(get(path).head.status, 404) << path;
    }
}

TEST_F(StaticServerTest, OneAddressCannotTakeAllConnections) {
    server.publish("plain", "plain");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port =
        htons(static_cast<std::uint16_t>(std::stoi(server.url().substr(server.url().rfind(':') + 1))));
    std::vector<base::UniqueFd> idle;
    int refused = 0;
    for (int count = 0; count < 100; ++count) {
        idle.emplace_back(::socket(AF_INET, SOCK_STREAM, 0));
        ASSERT_EQ(::connect(idle.back().get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    EXPECT_EQ(get("/plain").head.status, 0) << "one more of the same address";
    for (const base::UniqueFd& one : idle) {
        char byte = 0;
        refused += ::recv(one.get(), &byte, 1, MSG_DONTWAIT) >= 0 ? 1 : 0;
    }
    EXPECT_EQ(refused, 100 - 64);
    idle.clear();
    while (get("/plain").head.status != 200)
        std::this_thread::yield();  // until the server has noticed that they are closed
}

}  // namespace
}  // namespace zelor::agent
