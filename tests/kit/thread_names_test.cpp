#include "kit/thread_names.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <future>
#include <string>

namespace {

/// The name that the system's thread has after it was given this one.
std::string GetSystemName(const std::string& given) {
    return std::async(std::launch::async,
                      [&] {
                          kit::threadNames.SetNameOfCurrentThread(given);
                          char name[16] = {};
                          pthread_getname_np(pthread_self(), name, sizeof name);
                          return std::string(name);
                      })
        .get();
}

/// Sets a name while its thread ends, after the register has dropped the thread.
struct NamesThreadWhileEnding {
    ~NamesThreadWhileEnding() { kit::threadNames.SetNameOfCurrentThread("ghost"); }
};

}  // namespace

TEST(ThreadNames, NamedThread_IsKnownToItselfAndOthers) {
    std::promise<void> named;
    std::promise<void> looked;
    std::jthread thread([&] {
        kit::threadNames.SetNameOfCurrentThread("a name longer than the system's");
        EXPECT_EQ("a name longer than the system's", kit::threadNames.GetNameOfCurrentThread());
        named.set_value();
        looked.get_future().wait();
    });
    named.get_future().wait();
    EXPECT_EQ("a name longer than the system's", kit::threadNames.GetName(thread.get_id()));
    looked.set_value();
}

TEST(ThreadNames, NamedTwice_HasTheSecondName) {
    std::jthread([] {
        kit::threadNames.SetNameOfCurrentThread("first");
        kit::threadNames.SetNameOfCurrentThread("second");
        EXPECT_EQ("second", kit::threadNames.GetNameOfCurrentThread());
    }).join();
}

TEST(ThreadNames, UnnamedThread_HasEmptyName) {
    std::jthread([] { EXPECT_EQ("", kit::threadNames.GetNameOfCurrentThread()); }).join();
    EXPECT_EQ("", kit::threadNames.GetName(std::thread::id()));
}

TEST(ThreadNames, EndedThread_IsForgotten) {
    std::thread thread([] { kit::threadNames.SetNameOfCurrentThread("short life"); });
    const std::thread::id id = thread.get_id();
    thread.join();
    EXPECT_EQ("", kit::threadNames.GetName(id));
}

TEST(ThreadNames, NameGivenWhileThreadEnds_LeavesNoEntry) {
    std::thread thread([] {
        thread_local const NamesThreadWhileEnding last;
        (void)&last;
        kit::threadNames.SetNameOfCurrentThread("worker");
    });
    const std::thread::id id = thread.get_id();
    thread.join();
    EXPECT_EQ("", kit::threadNames.GetName(id));
}

TEST(ThreadNames, SystemName_IsCutTo15BytesBetweenCharacters) {
    EXPECT_EQ("GuiUpdate", GetSystemName("GuiUpdate"));
    EXPECT_EQ("exactly_15_byte", GetSystemName("exactly_15_byte"));
    EXPECT_EQ("update_generato", GetSystemName("update_generator"));
    EXPECT_EQ("zwoelf + drei ", GetSystemName("zwoelf + drei \u00fc"));
    EXPECT_EQ("vierzehn byte", GetSystemName("vierzehn byte\u20ac\u20ac"));
}
