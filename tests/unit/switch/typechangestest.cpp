// SPDX-License-Identifier: LGPL-2.1-or-later

// Changes of the types' folders on a disk that takes its time.

#include "switch/typechanges.hpp"

#include "support/temporaryfolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

using namespace qandor;
using qandor::test::TemporaryFolder;
using testing::ElementsAre;

namespace {

// While it is slow, nothing reaches it.
struct Disk {
    void wait()
    {
        std::unique_lock lock(mutex);
        ++waiting;
        changed.notify_all();
        changed.wait(lock, [this] { return !is_slow; });
    }
    void be_slow(bool slow)
    {
        std::lock_guard lock(mutex);
        is_slow = slow;
        waiting = 0;
        changed.notify_all();
    }
    void wait_until_used()
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return waiting > 0; });
    }

    std::mutex mutex;
    std::condition_variable changed;
    bool is_slow = false;
    int waiting = 0;
};
Disk disk;

} // namespace

// In place of the system's.
extern "C" int fsync(int)
{
    disk.wait();
    return 0;
}

namespace {

class TypeChangesTest : public testing::Test {
protected:
    TypeChangesTest()
    {
        sd_event *made = nullptr;
        EXPECT_GE(sd_event_new(&made), 0);
        loop.reset(made);
        changes = std::make_unique<TypeChanges>(folders);
        EXPECT_GE(changes->begin(made), 0);
    }
    ~TypeChangesTest() override { disk.be_slow(false); }

    void write(guint32 uid, const std::string &name)
    {
        changes->add(
            uid, {},
            [this, name] {
                begun.push_back(name);
                return FileChange{writable.path().string(), path_of(name), name};
            },
            [this, name](TypeResult result) {
                EXPECT_EQ(result, TypeResult::Done);
                finished.push_back(name);
            });
    }
    std::string path_of(const std::string &name) const { return (writable.path() / name).string(); }
    void run() { ASSERT_GE(sd_event_run(loop.get(), 20 * G_USEC_PER_SEC), 0); }

    TemporaryFolder read_only, writable;
    EventLoopOwner loop;
    TypeFolders folders{read_only.path().string(), writable.path().string()};
    std::unique_ptr<TypeChanges> changes;
    std::vector<std::string> begun, finished;
};

TEST_F(TypeChangesTest, TheEventLoopGoesOnWhileTheDiskIsWaitedFor)
{
    disk.be_slow(true);
    write(1, "a");
    disk.wait_until_used();
    bool has_gone_on = false;
    sd_event_source *other = nullptr;
    auto note = [](sd_event_source *, void *data) {
        *static_cast<bool *>(data) = true;
        return 0;
    };
    ASSERT_GE(sd_event_add_defer(loop.get(), &other, note, &has_gone_on), 0);
    EventTimerOwner owner(other);
    run();
    EXPECT_TRUE(has_gone_on);
    EXPECT_THAT(finished, ElementsAre());
    EXPECT_TRUE(changes->holds(1));
    EXPECT_FALSE(changes->holds(2));

    disk.be_slow(false);
    run();
    EXPECT_THAT(finished, ElementsAre("a"));
    EXPECT_FALSE(changes->holds(1));
    EXPECT_TRUE(std::filesystem::exists(path_of("a")));
}

TEST_F(TypeChangesTest, EachIsBegunWhenThoseBeforeAreDone)
{
    disk.be_slow(true);
    write(1, "a");
    write(2, "b");
    changes->add(
        1, {},
        [this] {
            begun.emplace_back("refused");
            return TypeResult::BadName;
        },
        [this](TypeResult result) {
            EXPECT_EQ(result, TypeResult::BadName);
            finished.emplace_back("refused");
        });
    EXPECT_THAT(begun, ElementsAre("a"));
    disk.be_slow(false);
    while (finished.size() < 3)
        run();
    EXPECT_THAT(begun, ElementsAre("a", "b", "refused"));
    EXPECT_THAT(finished, ElementsAre("a", "b", "refused"));
}

TEST_F(TypeChangesTest, AnEndInTheMiddleLeavesAWholeFileAndNothingElse)
{
    disk.be_slow(true);
    write(1, "a");
    write(1, "b");
    disk.wait_until_used();
    std::jthread later([] { disk.be_slow(false); });
    changes.reset();
    std::vector<std::string> left;
    for (const auto &file : std::filesystem::directory_iterator(writable.path()))
        left.push_back(file.path().filename());
    EXPECT_THAT(left, ElementsAre("a"));
    EXPECT_THAT(finished, ElementsAre());
}

TEST_F(TypeChangesTest, WhatFailsIsSaid)
{
    TypeResult result = TypeResult::Done;
    changes->add(
        1, {},
        [this] {
            return FileChange{writable.path().string(), path_of("none"), std::nullopt};
        },
        [&result](TypeResult has_come) { result = has_come; });
    run();
    EXPECT_EQ(result, TypeResult::NotFound);
}

} // namespace
