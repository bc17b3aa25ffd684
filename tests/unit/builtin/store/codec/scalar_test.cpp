// Single values as text and as wire bytes, for every type of field, those too that no record has yet.
#include "store/codec/scalar.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <optional>

#include "store/codec/key.h"

namespace
{

ProtobufCFieldDescriptor field_of(ProtobufCType type, uint32_t number = 1)
{
    ProtobufCFieldDescriptor field{};
    field.id = number;
    field.label = PROTOBUF_C_LABEL_NONE;
    field.type = type;
    field.offset = sizeof(ProtobufCMessage);
    return field;
}

// The wire bytes of a value behind its tag; nothing when the text is no value.
std::optional<std::string> wire_of(ProtobufCType type, const std::string &text)
{
    std::string wire;
    return store::append_scalar(field_of(type), text, wire) ? std::optional(wire.substr(1)) : std::nullopt;
}

// A message with one member of any type.
template <typename Value>
struct Holder {
    ProtobufCMessage base{};
    Value value{};
};

template <typename Value>
std::string text_of(ProtobufCType type, Value value)
{
    Holder<Value> holder;
    holder.value = value;
    const ProtobufCFieldDescriptor field = field_of(type);
    EXPECT_EQ(store::is_default_scalar(field, holder.base), value == Value{});
    return store::scalar_text(field, holder.base);
}

TEST(Scalar, NumbersOfEveryTypeHaveTheirText)
{
    EXPECT_EQ(text_of<int32_t>(PROTOBUF_C_TYPE_INT32, -7), "-7");
    EXPECT_EQ(text_of<int32_t>(PROTOBUF_C_TYPE_SINT32, -7), "-7");
    EXPECT_EQ(text_of<int32_t>(PROTOBUF_C_TYPE_SFIXED32, 0), "0");
    EXPECT_EQ(text_of<int32_t>(PROTOBUF_C_TYPE_ENUM, 3), "3");
    for (const auto type : {PROTOBUF_C_TYPE_INT64, PROTOBUF_C_TYPE_SINT64, PROTOBUF_C_TYPE_SFIXED64}) {
        EXPECT_EQ(text_of<int64_t>(type, -(int64_t{1} << 40)), "-1099511627776");
        EXPECT_EQ(text_of<int64_t>(type, int64_t{1} << 32), "4294967296") << "its lower half is 0";
    }
    for (const auto type : {PROTOBUF_C_TYPE_UINT32, PROTOBUF_C_TYPE_FIXED32}) {
        EXPECT_EQ(text_of<uint32_t>(type, 4000000000U), "4000000000");
    }
    for (const auto type : {PROTOBUF_C_TYPE_UINT64, PROTOBUF_C_TYPE_FIXED64}) {
        EXPECT_EQ(text_of<uint64_t>(type, std::numeric_limits<uint64_t>::max()), "18446744073709551615");
        EXPECT_EQ(text_of<uint64_t>(type, uint64_t{1} << 32), "4294967296");
    }
    EXPECT_EQ(text_of<protobuf_c_boolean>(PROTOBUF_C_TYPE_BOOL, 1), "1");
    EXPECT_EQ(text_of<protobuf_c_boolean>(PROTOBUF_C_TYPE_BOOL, 0), "0");
}

TEST(Scalar, TextsAndBytesMayBeAbsent)
{
    const ProtobufCFieldDescriptor text = field_of(PROTOBUF_C_TYPE_STRING);
    Holder<const char *> name;
    EXPECT_EQ(store::scalar_text(text, name.base), "");
    EXPECT_TRUE(store::is_default_scalar(text, name.base));
    name.value = "";
    EXPECT_TRUE(store::is_default_scalar(text, name.base));
    name.value = "x";
    EXPECT_FALSE(store::is_default_scalar(text, name.base));
    EXPECT_EQ(store::scalar_text(text, name.base), "x");
    const ProtobufCFieldDescriptor bytes = field_of(PROTOBUF_C_TYPE_BYTES);
    Holder<ProtobufCBinaryData> data;
    uint8_t content[] = {0, 7};
    for (const ProtobufCBinaryData none : {ProtobufCBinaryData{0, nullptr}, {0, content}, {2, nullptr}}) {
        data.value = none;
        EXPECT_TRUE(store::is_default_scalar(bytes, data.base));
        EXPECT_EQ(store::scalar_text(bytes, data.base), "");
    }
    data.value = {2, content};
    EXPECT_FALSE(store::is_default_scalar(bytes, data.base));
    EXPECT_EQ(store::scalar_text(bytes, data.base), std::string("\0\x07", 2));
}

TEST(Scalar, WireBytesAreThoseOfTheFormat)
{
    EXPECT_EQ(wire_of(PROTOBUF_C_TYPE_INT32, "300"), "\xac\x02");
    EXPECT_EQ(wire_of(PROTOBUF_C_TYPE_ENUM, "-1"), "\xff\xff\xff\xff\xff\xff\xff\xff\xff\x01");
    EXPECT_EQ(wire_of(PROTOBUF_C_TYPE_INT64, "127"), "\x7f");
    EXPECT_EQ(wire_of(PROTOBUF_C_TYPE_INT64, "128"), "\x80\x01");
    EXPECT_EQ(wire_of(PROTOBUF_C_TYPE_UINT32, "4294967295"), "\xff\xff\xff\xff\x0f");
    EXPECT_EQ(wire_of(PROTOBUF_C_TYPE_UINT64, "1"), "\x01");
    EXPECT_EQ(wire_of(PROTOBUF_C_TYPE_SINT32, "-1"), "\x01");
    EXPECT_EQ(wire_of(PROTOBUF_C_TYPE_SINT32, "1"), "\x02");
    EXPECT_EQ(wire_of(PROTOBUF_C_TYPE_SINT64, "-64"), "\x7f");
    EXPECT_EQ(wire_of(PROTOBUF_C_TYPE_SINT64, "-65"), "\x81\x01");
    EXPECT_EQ(wire_of(PROTOBUF_C_TYPE_FIXED32, "513"), std::string("\x01\x02\0\0", 4));
    EXPECT_EQ(wire_of(PROTOBUF_C_TYPE_SFIXED32, "-1"), "\xff\xff\xff\xff");
    EXPECT_EQ(wire_of(PROTOBUF_C_TYPE_FIXED64, "513"), std::string("\x01\x02\0\0\0\0\0\0", 8));
    EXPECT_EQ(wire_of(PROTOBUF_C_TYPE_SFIXED64, "-2"), "\xfe\xff\xff\xff\xff\xff\xff\xff");
    EXPECT_EQ(wire_of(PROTOBUF_C_TYPE_BOOL, "1"), "\x01");
    EXPECT_EQ(wire_of(PROTOBUF_C_TYPE_STRING, "ab"), "\x02"
                                                     "ab");
    EXPECT_EQ(wire_of(PROTOBUF_C_TYPE_BYTES, std::string("\0", 1)), std::string("\x01\0", 2));
    std::string wire;
    ASSERT_TRUE(store::append_scalar(field_of(PROTOBUF_C_TYPE_FIXED64, 16), "0", wire));
    EXPECT_EQ(wire.substr(0, 2), "\x81\x01") << "the tag: number and kind";
    for (const auto &[type, kind] : {std::pair{PROTOBUF_C_TYPE_BOOL, '\x08'},
                                     {PROTOBUF_C_TYPE_FIXED32, '\x0d'},
                                     {PROTOBUF_C_TYPE_SFIXED64, '\x09'},
                                     {PROTOBUF_C_TYPE_SFIXED32, '\x0d'}}) {
        wire.clear();
        ASSERT_TRUE(store::append_scalar(field_of(type), "1", wire));
        EXPECT_EQ(wire[0], kind) << type;
    }
    wire.clear();
    ASSERT_TRUE(store::append_scalar(field_of(PROTOBUF_C_TYPE_STRING), "", wire));
    EXPECT_EQ(wire, std::string("\x0a\0", 2));
}

TEST(Scalar, WhatIsNoValueOfTheTypeIsRefused)
{
    for (const auto type :
         {PROTOBUF_C_TYPE_INT32, PROTOBUF_C_TYPE_ENUM, PROTOBUF_C_TYPE_SINT32, PROTOBUF_C_TYPE_SFIXED32}) {
        EXPECT_FALSE(wire_of(type, "2147483648")) << type;
        EXPECT_TRUE(wire_of(type, "-2147483648")) << type;
    }
    for (const auto type : {PROTOBUF_C_TYPE_INT64, PROTOBUF_C_TYPE_SINT64, PROTOBUF_C_TYPE_SFIXED64}) {
        EXPECT_FALSE(wire_of(type, "9223372036854775808")) << type;
    }
    for (const auto type : {PROTOBUF_C_TYPE_UINT32, PROTOBUF_C_TYPE_FIXED32}) {
        EXPECT_FALSE(wire_of(type, "4294967296")) << type;
        EXPECT_FALSE(wire_of(type, "-1")) << type;
    }
    for (const auto type : {PROTOBUF_C_TYPE_UINT64, PROTOBUF_C_TYPE_FIXED64}) {
        EXPECT_FALSE(wire_of(type, "18446744073709551616")) << type;
        EXPECT_FALSE(wire_of(type, "-1")) << type;
    }
    for (const char *wrong : {"2", "", "true", "01", "-1"}) {
        EXPECT_FALSE(wire_of(PROTOBUF_C_TYPE_BOOL, wrong)) << wrong;
    }
    EXPECT_FALSE(wire_of(PROTOBUF_C_TYPE_STRING, std::string("a\0", 2)));
    EXPECT_FALSE(wire_of(PROTOBUF_C_TYPE_DOUBLE, "1")) << "is not stored";
    EXPECT_FALSE(wire_of(PROTOBUF_C_TYPE_MESSAGE, "1"));
}

TEST(Scalar, SomeTypesAreNone)
{
    for (const auto type : {PROTOBUF_C_TYPE_MESSAGE, PROTOBUF_C_TYPE_FLOAT, PROTOBUF_C_TYPE_DOUBLE}) {
        EXPECT_FALSE(store::is_scalar(field_of(type))) << type;
    }
    ProtobufCFieldDescriptor field = field_of(PROTOBUF_C_TYPE_INT32);
    EXPECT_TRUE(store::is_scalar(field));
    field.label = PROTOBUF_C_LABEL_REPEATED;
    EXPECT_FALSE(store::is_scalar(field));
}

TEST(Scalar, VariableLengthIntegersAreReadUpToTheirEnd)
{
    for (const uint64_t value :
         {uint64_t{0}, uint64_t{127}, uint64_t{128}, std::numeric_limits<uint64_t>::max()}) {
        std::string wire;
        store::append_varint(wire, value);
        wire += "rest";
        std::string_view bytes = wire;
        uint64_t found = 1;
        ASSERT_TRUE(store::parse_varint(bytes, found));
        EXPECT_EQ(found, value);
        EXPECT_EQ(bytes, "rest");
    }
    for (const std::string &wrong : {std::string(), std::string("\x80", 1), std::string(10, '\xff')}) {
        std::string_view bytes = wrong;
        uint64_t found = 0;
        EXPECT_FALSE(store::parse_varint(bytes, found)) << wrong.size();
    }
}

} // namespace
