// What the settings say about the store, before there is a client.
#include "store/connection/configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/builtin/store/scoped_setting.h"

namespace
{

using store_test::ScopedSetting;
using testing::HasSubstr;

TEST(Configuration, WhatIsWrongIsFoundBeforeThereIsAClient)
{
    EXPECT_EQ(store::configuration_problem(), "");
    {
        const ScopedSetting wrong("VX_MOM_DEADLINE_MS", "abc");
        testing::internal::CaptureStderr();
        EXPECT_EQ(store::configuration_problem(),
                  "VX_MOM_DEADLINE_MS=abc: not a whole number from 1 to 3600000");
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "to say it is the caller's";
    }
    {
        const ScopedSetting wrong("VX_MOM_AUTH_FILE", "/nonexistent/auth");
        EXPECT_THAT(store::configuration_problem(),
                    HasSubstr("VX_MOM_AUTH_FILE: /nonexistent/auth: No such file or directory"));
    }
    const ScopedSetting wrong("VX_MOM_ENDPOINT", "tcp:1");
    EXPECT_EQ(store::configuration_problem(),
              "endpoint 'tcp:1' is none, use unix:/path, tcp:host:port or sentinel:NAME@host:port,host:port");
}

} // namespace
