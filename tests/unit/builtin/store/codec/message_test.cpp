// The memory of decoded records.
#include "store/codec/message.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "p_dev.pb-c.h"
#include "store/codec/value.h"

namespace
{

TEST(Message, ARecordOfAnySizeHasItsMemoryForItself)
{
    std::string why;
    const auto named = [&why](const std::string &name) {
        return store::decode_record(p_dev__card_info__descriptor, "p_dev.card_info:0:1:2:0", {{"12", name}},
                                    why);
    };
    const auto name_of = [](const store::MessagePtr &record) {
        return std::string(reinterpret_cast<const PDev__CardInfo *>(record.get())->name);
    };
    for (const size_t size : {1U, 400U, 600U, 100000U}) {
        store::MessagePtr first = named(std::string(size, 'a'));
        const store::MessagePtr second = named(std::string(size, 'b'));
        ASSERT_TRUE(first != nullptr && second != nullptr) << why;
        EXPECT_EQ(name_of(first), std::string(size, 'a'));
        const store::MessagePtr moved = std::move(first);
        first = named("c");
        EXPECT_EQ(name_of(moved), std::string(size, 'a'));
        EXPECT_EQ(name_of(second), std::string(size, 'b'));
        EXPECT_EQ(reinterpret_cast<const PDev__CardInfo *>(moved.get())->index->slotid, 2);
    }
}

} // namespace
