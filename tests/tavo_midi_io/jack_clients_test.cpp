#include "tavo_midi_io/jack_clients.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

using tavo_midi_io::jack_clients::HasMissedALeaver;

TEST(JackClients, AnotherProgramLeftAndLibjackHoldsOnToIt_IsNoticedUntilItLetsGo) {
    // As libjack does for each client of the server.
    const char* const name = "/jack_sem.test_of_a_client_that_left";
    const int file = ::shm_open(name, O_CREAT | O_RDWR, 0600);
    ASSERT_GE(file, 0);
    ASSERT_EQ(::ftruncate(file, 12), 0);
    void* const held = ::mmap(nullptr, 12, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ASSERT_NE(held, MAP_FAILED);
    ::close(file);
    EXPECT_FALSE(HasMissedALeaver()) << "while the other client is there";
    ASSERT_EQ(::shm_unlink(name), 0);
    EXPECT_TRUE(HasMissedALeaver());
    ::munmap(held, 12);
    EXPECT_FALSE(HasMissedALeaver());
}

}  // namespace
