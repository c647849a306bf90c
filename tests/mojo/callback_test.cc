#include "base/callback.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "base/bind.h"

namespace kelvane::testing {
namespace {

struct Counter {
    int add(int a, int b) { return total += a + b; }
    int total = 0;
};

TEST(CallbackTest, BindsMembersThroughUnretainedAndLeavesTheRestUnbound) {
    Counter c;
    base::RepeatingCallback<int(int)> addTen =
        base::BindRepeating(&Counter::add, base::Unretained(&c), 10);
    EXPECT_EQ(addTen.Run(1), 11);
    EXPECT_EQ(addTen.Run(2), 23);
    base::OnceCallback<int(int)> once = addTen;  // a repeating callback converts
    EXPECT_EQ(std::move(once).Run(0), 33);
    EXPECT_EQ(addTen.Run(0), 43);  // the repeating copy still has its bound arguments
}

TEST(CallbackTest, OnceCallbacksMoveBoundArgumentsOutAndRunOnce) {
    auto cb = base::BindOnce(
        [](std::unique_ptr<std::string> s, const std::string& tail) { return *s + tail; },
        std::make_unique<std::string>("head"));
    EXPECT_FALSE(cb.is_null());
    EXPECT_EQ(std::move(cb).Run("-tail"), "head-tail");
    EXPECT_TRUE(cb.is_null());
}

TEST(CallbackTest, DestroyingAnUnrunCallbackReleasesItsArguments) {
    auto owned = std::make_shared<int>(1);
    {
        auto cb = base::BindOnce([](std::shared_ptr<int>) {}, owned);
        EXPECT_EQ(owned.use_count(), 2);
    }
    EXPECT_EQ(owned.use_count(), 1);
}

TEST(CallbackTest, CallbacksCanBeBoundAsFunctors) {
    base::OnceCallback<int(int, int)> sum = base::BindOnce([](int a, int b) { return a + b; });
    base::OnceCallback<int()> bound = base::BindOnce(std::move(sum), 2, 3);
    EXPECT_EQ(std::move(bound).Run(), 5);
}

}  // namespace
}  // namespace kelvane::testing
