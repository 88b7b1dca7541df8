#include "utils/singleton.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <type_traits>

namespace Kes {
namespace {

class Counter final : public Singleton<Counter> {
public:
    static inline int created = 0;
    static inline int destroyed = 0;
    int value = 0;

private:
    friend class Singleton<Counter>;
    Counter() { ++created; }
    ~Counter() { ++destroyed; }
};

static_assert(!std::is_copy_constructible_v<Counter> && !std::is_copy_assignable_v<Counter>);

class Refusing final : public Singleton<Refusing> {
public:
    static inline bool is_refused = true;

private:
    friend class Singleton<Refusing>;
    Refusing() {
        if (is_refused) throw std::runtime_error("refused");
    }
    ~Refusing() = default;
};

class RequestsItself final : public Singleton<RequestsItself> {
public:
    static inline const RequestsItself* found = nullptr;

private:
    friend class Singleton<RequestsItself>;
    RequestsItself() = default;
    ~RequestsItself() { found = &instance(); }
};

class SingletonTest : public testing::Test {
protected:
    SingletonTest() { Counter::created = Counter::destroyed = 0; }
    ~SingletonTest() override { Counter::destroy_instance(); }
};

TEST_F(SingletonTest, IsCreatedOnFirstUse) {
    EXPECT_FALSE(Counter::exists());
    EXPECT_EQ(Counter::created, 0);
    Counter::instance().value = 5;
    EXPECT_TRUE(Counter::exists());
    EXPECT_EQ(Counter::instance().value, 5);
    EXPECT_EQ(Counter::created, 1);
}

TEST_F(SingletonTest, ExistsDoesNotCreateAnInstance) {
    EXPECT_FALSE(Counter::exists());
    EXPECT_FALSE(Counter::exists());
    EXPECT_EQ(Counter::created, 0);
}

TEST_F(SingletonTest, DestroyedInstanceIsReplacedOnNextUse) {
    Counter::instance().value = 5;
    Counter::destroy_instance();
    EXPECT_FALSE(Counter::exists());
    EXPECT_EQ(Counter::destroyed, 1);
    EXPECT_EQ(Counter::instance().value, 0);
    EXPECT_EQ(Counter::created, 2);
}

TEST_F(SingletonTest, DestroyingWithoutAnInstanceDoesNothing) {
    Counter::destroy_instance();
    EXPECT_EQ(Counter::destroyed, 0);
    EXPECT_FALSE(Counter::exists());
}

TEST_F(SingletonTest, FailedConstructionStoresNothing) {
    Refusing::is_refused = true;
    EXPECT_THROW(Refusing::instance(), std::runtime_error);
    EXPECT_FALSE(Refusing::exists());
    Refusing::is_refused = false;
    Refusing::instance();
    EXPECT_TRUE(Refusing::exists());
    Refusing::destroy_instance();
}

TEST_F(SingletonTest, DestructorThatRequestsTheInstanceGetsItself) {
    const RequestsItself* instance = &RequestsItself::instance();
    RequestsItself::destroy_instance();
    EXPECT_EQ(RequestsItself::found, instance);
    EXPECT_FALSE(RequestsItself::exists());
}

} // namespace
} // namespace Kes
