// Who made a change, as text and back.
#include "store/origin.h"

#include <gtest/gtest.h>

namespace store
{

namespace
{

using Kind = Cause::Kind;

TEST(Origin, EveryCauseHasItsTextAndIsReadBack)
{
    const std::string writer = "3fa9c0de.17";
    for (const auto &[cause, text] : {
             std::pair{Cause{Kind::unknown}, writer},
             std::pair{Cause{Kind::none}, writer + " -"},
             std::pair{Cause{Kind::timer}, writer + " timer"},
             std::pair{Cause{Kind::connection}, writer + " connection"},
             std::pair{Cause{Kind::record, 42, "p_dev.card_info:0:1:3:0"},
                       writer + " 42 p_dev.card_info:0:1:3:0"},
         }) {
        const Origin origin{"3fa9c0de", 17, cause};
        EXPECT_EQ(text_of(origin), text);
        EXPECT_EQ(parse_origin(text), origin) << text;
    }
}

TEST(Origin, WhatIsNoWriterIsUnknown)
{
    for (const char *text :
         {"", ".", "a", "a.", ".1", "a.0", "a.01", "a.-1", "a.1x", "a.99999999999999999999", " -"}) {
        EXPECT_EQ(parse_origin(text), Origin{}) << text;
    }
}

TEST(Origin, AWriterIsKnownWhateverItSaysOfTheCause)
{
    for (const char *cause : {"", "x", "42", "42 ", "0 key", "04 key", "x key", "-1 key", "timer ", " -"}) {
        EXPECT_EQ(parse_origin(std::string("a.b.7 ") + cause), (Origin{"a.b", 7, {}})) << cause;
    }
}

} // namespace

} // namespace store
