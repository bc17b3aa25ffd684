// The one writer's claim to the history.
#include "history_fixture.h"

namespace history
{

namespace
{

using FileLockTest = HistoryTest;

} // namespace

TEST_F(FileLockTest, OneWriterAtATime)
{
    const auto first = writer();
    EXPECT_EQ(message_of([this] { writer(); }),
              "cannot write the history " + path() + ": another process writes it");
}

TEST_F(FileLockTest, AFolderThatIsNotThereIsNamed)
{
    folder_ /= "missing";
    EXPECT_THAT(message_of([this] { writer(); }), HasSubstr("history.sqlite.lock: No such file"));
    folder_ = folder_.parent_path();
}

} // namespace history
