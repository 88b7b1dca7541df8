#include "utils/unique_handle.h"

#include <gtest/gtest.h>
#include <type_traits>
#include <vector>

namespace Kes::test {
namespace {

std::vector<int> closed;

struct NumberTraits {
    using Raw = int;
    static void close(int handle) noexcept { closed.push_back(handle); }
};
using Number = UniqueHandle<NumberTraits>;

class UniqueHandleTest : public ::testing::Test {
protected:
    UniqueHandleTest() { closed.clear(); }
};

using Closed = std::vector<int>;

TEST_F(UniqueHandleTest, CannotBeCopiedOrMoved) {
    EXPECT_FALSE(std::is_copy_constructible_v<Number>);
    EXPECT_FALSE(std::is_copy_assignable_v<Number>);
    EXPECT_FALSE(std::is_move_constructible_v<Number>);
    EXPECT_FALSE(std::is_move_assignable_v<Number>);
    EXPECT_EQ(sizeof(Number), sizeof(int));
}

TEST_F(UniqueHandleTest, EmptyHandleIsFalseAndClosesNothing) {
    {
        const Number handle;
        EXPECT_FALSE(handle);
        EXPECT_EQ(handle.get(), 0);
    }
    EXPECT_EQ(closed, Closed());
}

TEST_F(UniqueHandleTest, ClosesItsHandleOnceOnDestruction) {
    {
        const Number handle(7);
        EXPECT_TRUE(handle);
        EXPECT_EQ(handle.get(), 7);
        EXPECT_EQ(closed, Closed());
    }
    EXPECT_EQ(closed, Closed{7});
}

TEST_F(UniqueHandleTest, ReleasedHandleIsNotClosed) {
    {
        Number handle(7);
        EXPECT_EQ(handle.release(), 7);
        EXPECT_FALSE(handle);
        EXPECT_EQ(handle.release(), 0);
    }
    EXPECT_EQ(closed, Closed());
}

TEST_F(UniqueHandleTest, ResetClosesTheEarlierHandleAndOwnsTheNewOne) {
    {
        Number handle(7);
        handle.reset(8);
        EXPECT_EQ(closed, Closed{7});
        EXPECT_EQ(handle.get(), 8);
        handle.reset();
        EXPECT_EQ(closed, (Closed{7, 8}));
        handle.reset();
        EXPECT_FALSE(handle);
    }
    EXPECT_EQ(closed, (Closed{7, 8}));
}

TEST_F(UniqueHandleTest, PutClosesTheHandleAndOwnsTheOneWrittenToIt) {
    {
        Number handle(7);
        int* handle_address = handle.put();
        EXPECT_EQ(closed, Closed{7});
        EXPECT_EQ(*handle_address, 0);
        *handle_address = 8;
        EXPECT_EQ(handle.get(), 8);
    }
    EXPECT_EQ(closed, (Closed{7, 8}));
}

struct PointerTraits {
    using Raw = void*;
    static void close(void*) noexcept { closed.push_back(1); }
};

TEST_F(UniqueHandleTest, NullPointerIsNotAHandle) {
    int object = 0;
    {
        UniqueHandle<PointerTraits> handle(nullptr);
        EXPECT_FALSE(handle);
        handle.reset(&object);
        EXPECT_TRUE(handle);
        EXPECT_EQ(closed, Closed());
    }
    EXPECT_EQ(closed, Closed{1});
}

} // namespace
} // namespace Kes::test
