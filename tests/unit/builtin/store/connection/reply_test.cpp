// Replies out of our own memory hold what the library's own would, whatever the bytes and wherever they are
// cut; and the memory is neither given back too early nor kept for ever.
#include "store/connection/reply.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "wire_reader.h"

namespace
{

using wire_test::OurReader;
using wire_test::shown;
using wire_test::TheirReader;

std::string bulk(const std::string &text)
{
    return "$" + std::to_string(text.size()) + "\r\n" + text + "\r\n";
}

std::string list(const std::vector<std::string> &parts)
{
    std::string bytes = "*" + std::to_string(parts.size()) + "\r\n";
    for (const std::string &part : parts) {
        bytes += part;
    }
    return bytes;
}

// Everything that comes of these bytes when they arrive in pieces of that size.
template <typename Reader>
std::string all_shown(const std::string &bytes, size_t piece)
{
    Reader reader;
    std::string text;
    for (size_t at = 0; at < bytes.size(); at += piece) {
        reader.feed(std::string_view(bytes).substr(at, piece));
        while (auto reply = reader.next()) {
            text += shown(reply.get()) + '\n';
        }
    }
    return text + (reader.failed() ? "broken" : "");
}

class ReplyTest : public testing::TestWithParam<std::string>
{
};

TEST_P(ReplyTest, HoldsWhatTheLibrarysOwnWould)
{
    for (const size_t piece : {size_t{1}, size_t{2}, size_t{7}, size_t{4096}}) {
        EXPECT_EQ(all_shown<OurReader>(GetParam(), piece), all_shown<TheirReader>(GetParam(), piece))
            << piece;
    }
}

std::string numbered(size_t count)
{
    std::vector<std::string> parts;
    for (size_t i = 0; i < count; i++) {
        parts.push_back(bulk("element " + std::to_string(i)));
    }
    return list(parts);
}

INSTANTIATE_TEST_SUITE_P(
    Bytes, ReplyTest,
    testing::Values("+OK\r\n", "-ERR no such thing\r\n", "-\r\n", ":42\r\n", ":-9223372036854775808\r\n",
                    "$-1\r\n", "*-1\r\n", "*0\r\n", bulk(""), bulk(std::string("a\0b\r\n", 5)),
                    bulk(std::string(100000, 'x')),
                    list({bulk("a"), ":1\r\n", "$-1\r\n", "-ERR within\r\n", "*0\r\n"}),
                    list({list({list({bulk("deep")}), bulk("after")}), list({}), bulk("last")}), numbered(63),
                    numbered(64), numbered(65), numbered(128), numbered(129), numbered(1000),
                    list({numbered(100), bulk("between"), numbered(100)}),
                    "+one\r\n+two\r\n" + bulk("three") + numbered(3),
                    // and what ends the stream
                    "?\r\n", "*2\r\n+good\r\n?bad\r\n", ":x\r\n", "$-2\r\n", "*-2\r\n", "*3000000000\r\n",
                    "+before\r\n*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n+too deep\r\n"));

TEST(ReplyMemoryTest, SomeRepliesAreHeldWhileOthersComeAndGo)
{
    OurReader reader;
    reader.feed(numbered(200));
    const store::Reply first = reader.next();
    const std::string content = shown(first.get());
    for (int i = 0; i < 100; i++) {
        reader.feed(numbered(50));
        EXPECT_EQ(reader.next()->elements, 50U);
        EXPECT_EQ(shown(first.get()), content);
    }
}

TEST(ReplyMemoryTest, AReplyThatHasBegunSurvivesTheReturnOfAllOthers)
{
    OurReader reader;
    reader.feed(numbered(3) + "*2\r\n" + bulk("before"));
    ASSERT_NE(reader.next(), nullptr);
    store::Reply held = reader.next();
    EXPECT_EQ(held, nullptr) << "not all of it has come";
    reader.feed(bulk("after"));
    held = reader.next();
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(store::view_of(held->element[0]), "before");
    EXPECT_EQ(store::view_of(held->element[1]), "after");
}

TEST(ReplyMemoryTest, AReplyOutlivesItsReader)
{
    store::Reply reply;
    {
        OurReader reader;
        reader.feed(numbered(100));
        reply = reader.next();
    }
    EXPECT_EQ(store::view_of(reply->element[99]), "element 99");
}

TEST(ReplyMemoryTest, MemoryIsUsedAgainOnceNoReplyIsHeld)
{
    OurReader reader;
    reader.feed(bulk("first"));
    const char *place = reader.next()->str;
    for (int i = 0; i < 10; i++) {
        reader.feed(numbered(1000));
        ASSERT_NE(reader.next(), nullptr);
    }
    reader.feed(bulk("again"));
    EXPECT_EQ(reader.next()->str, place);
}

// What the process has asked the system for, touched or not.
long pages_asked_for()
{
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages;
}

TEST(ReplyMemoryTest, WhatIsOnlyAnnouncedCostsNothing)
{
    OurReader reader;
    const long before = pages_asked_for();
    reader.feed("*2000000000\r\n+the first of them\r\n");
    EXPECT_EQ(reader.next(), nullptr);
    EXPECT_FALSE(reader.failed()) << "the others may still come";
    EXPECT_LT(pages_asked_for() - before, 1000);
}

TEST(ReplyTextTest, AnErrorIsKnownByItsFirstWord)
{
    OurReader reader;
    reader.feed("-ERR\r\n-ERR no\r\n-ERROR no\r\n-E\r\n+ERR no\r\n");
    for (const bool expected : {true, true, false, false, false}) {
        EXPECT_EQ(store::is_error(reader.next().get(), "ERR"), expected);
    }
    EXPECT_FALSE(store::is_error(nullptr, "ERR"));
    EXPECT_TRUE(store::is_error(nullptr)) << "no answer is none that is good";
}

TEST(ReplyTextTest, OnlyTextsHaveAText)
{
    OurReader reader;
    reader.feed("+OK\r\n-ERR no\r\n:7\r\n$-1\r\n" + numbered(1));
    EXPECT_EQ(store::text_of(reader.next().get()), "OK");
    EXPECT_EQ(store::text_of(reader.next().get()), "ERR no");
    EXPECT_EQ(store::text_of(reader.next().get()), "");
    EXPECT_EQ(store::text_of(reader.next().get()), "");
    EXPECT_EQ(store::text_of(reader.next().get()), "");
    EXPECT_EQ(store::text_of(nullptr), "");
}

} // namespace
