#include "kit/lock.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace {

/// Writes down what is done to it.
class WitnessMutex {
public:
    WitnessMutex(std::string name, std::string& record) : name_(std::move(name)), record_(record) {}
    void lock() {
        if (refuses) throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
        record_ += "+" + name_;
    }
    void unlock() { record_ += "-" + name_; }

    bool refuses = false;

private:
    const std::string name_;
    std::string& record_;
};

using Lock = kit::UniqueLock<WitnessMutex>;

void ExpectSystemError(std::errc expected, const std::function<void()>& call) {
    try {
        call();
        ADD_FAILURE() << "no error";
    } catch (const std::system_error& error) {
        EXPECT_EQ(std::make_error_code(expected), error.code());
    }
}

class Locks : public testing::Test {
protected:
    std::string record_;
    WitnessMutex a_{"a", record_};
    WitnessMutex b_{"b", record_};
    WitnessMutex c_{"c", record_};
};

}  // namespace

TEST_F(Locks, UniqueLock_HoldsTheMutexForItsScope) {
    {
        const Lock lock(a_);
        EXPECT_TRUE(lock.OwnsLock());
        EXPECT_EQ("+a", record_);
    }
    EXPECT_EQ("+a-a", record_);
}

TEST_F(Locks, DeferredUniqueLock_TakesTheMutexOnlyWhenTold) {
    {
        const Lock lock(a_, std::defer_lock);
        EXPECT_FALSE(lock.OwnsLock());
        EXPECT_EQ("", record_);
        lock.Lock();
        EXPECT_TRUE(lock.OwnsLock());
        lock.Unlock();
        EXPECT_FALSE(lock.OwnsLock());
    }
    EXPECT_EQ("+a-a", record_);
}

TEST_F(Locks, MovedUniqueLock_LeavesOneOwner) {
    Lock first(a_);
    Lock second(std::move(first));
    EXPECT_TRUE(second.OwnsLock());
    Lock third(b_);
    third = std::move(second);
    EXPECT_EQ("+a+b-b", record_);
    EXPECT_TRUE(third.OwnsLock());
    third.Unlock();
    EXPECT_EQ("+a+b-b-a", record_);
}

TEST_F(Locks, MisusedUniqueLock_FollowsTheStandardsRules) {
    const Lock none;
    ExpectSystemError(std::errc::operation_not_permitted, [&] { none.Lock(); });
    ExpectSystemError(std::errc::operation_not_permitted, [&] { none.Unlock(); });
    const Lock lock(a_);
    ExpectSystemError(std::errc::resource_deadlock_would_occur, [&] { lock.Lock(); });
    lock.Unlock();
    ExpectSystemError(std::errc::operation_not_permitted, [&] { lock.Unlock(); });
    EXPECT_EQ("+a-a", record_);
}

TEST_F(Locks, Collection_LocksInOrderAndUnlocksInReverse) {
    const Lock a(a_, std::defer_lock);
    const Lock b(b_, std::defer_lock);
    const Lock c(c_, std::defer_lock);
    const kit::LockCollection all(a, b, c);
    EXPECT_FALSE(all.OwnsLock());
    all.Lock();
    EXPECT_TRUE(all.OwnsLock() && a.OwnsLock() && b.OwnsLock() && c.OwnsLock());
    all.Unlock();
    EXPECT_FALSE(all.OwnsLock() || a.OwnsLock() || b.OwnsLock() || c.OwnsLock());
    EXPECT_EQ("+a+b+c-c-b-a", record_);
}

TEST_F(Locks, CollectionInBraces_TakesItsOwnedPartsInOrderAndReleasesThemAtItsEnd) {
    {
        const kit::LockCollection all{Lock(a_), Lock(b_)};
        EXPECT_TRUE(all.OwnsLock());
        EXPECT_EQ("+a+b", record_);
    }
    EXPECT_NE(std::string::npos, record_.find("-a"));
    EXPECT_NE(std::string::npos, record_.find("-b"));
    EXPECT_EQ(8U, record_.size());
}

TEST_F(Locks, PartRefusesInCollection_EarlierPartsAreReleased) {
    const Lock a(a_, std::defer_lock);
    const Lock b(b_, std::defer_lock);
    const kit::LockCollection both(a, b);
    b_.refuses = true;
    ExpectSystemError(std::errc::resource_unavailable_try_again, [&] { both.Lock(); });
    EXPECT_EQ("+a-a", record_);
    EXPECT_FALSE(a.OwnsLock());
}

TEST_F(Locks, CollectionHalfOwned_RefusesBothWaysAndChangesNothing) {
    const Lock a(a_, std::defer_lock);
    const Lock b(b_);
    const kit::LockCollection both(a, b);
    EXPECT_FALSE(both.OwnsLock());
    ExpectSystemError(std::errc::operation_not_permitted, [&] { both.Unlock(); });
    ExpectSystemError(std::errc::resource_deadlock_would_occur, [&] { both.Lock(); });
    EXPECT_FALSE(a.OwnsLock());
    EXPECT_TRUE(b.OwnsLock());
}

TEST_F(Locks, CollectionOfCollections_IsALockLikeAnyOther) {
    const kit::LockCollection inner{Lock(a_), Lock(b_)};
    const Lock c(c_);
    const kit::LockCollection outer(inner, c);
    const kit::LockInterface& lock = outer;
    lock.Unlock();
    lock.Lock();
    EXPECT_EQ("+a+b+c-c-b-a+a+b+c", record_);
}

TEST_F(Locks, ScopedUnlock_LetsGoForItsScopeThroughConstReference) {
    const Lock lock(a_);
    const kit::LockInterface& handedOn = lock;
    {
        const kit::ScopedUnlock letGo(handedOn);
        EXPECT_FALSE(lock.OwnsLock());
        EXPECT_EQ("+a-a", record_);
    }
    EXPECT_TRUE(lock.OwnsLock());
    EXPECT_EQ("+a-a+a", record_);
}

TEST_F(Locks, ScopedUnlockOfFreeLock_IsRefused) {
    const Lock lock(a_, std::defer_lock);
    ExpectSystemError(std::errc::operation_not_permitted, [&] { const kit::ScopedUnlock letGo(lock); });
    EXPECT_EQ("", record_);
}

TEST(RecursiveLocks, ScopedUnlock_LetsGoOfOneLevelOnly) {
    std::recursive_mutex mutex;
    const kit::UniqueLock outer(mutex);
    const kit::UniqueLock inner(mutex);
    const kit::ScopedUnlock letGo(inner);
    EXPECT_FALSE(inner.OwnsLock());
    EXPECT_TRUE(outer.OwnsLock());
}
