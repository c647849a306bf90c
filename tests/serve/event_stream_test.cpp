// The live stream's fan-out: every page gets every frame in order, a page that falls behind
// loses frames (counted, and told) without holding up the others, and closing ends every page.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "serve/EventStream.h"

namespace {

using kelvane::tools::serve::EventStream;
using kelvane::tools::serve::sseFrame;
using std::chrono::milliseconds;

TEST(EventStreamTest, EveryPageGetsEveryFrameInOrderUntilItFallsBehind) {
    EventStream stream(2, 64);
    auto fast = stream.subscribe();
    auto slow = stream.subscribe();
    ASSERT_TRUE(fast && slow);
    EXPECT_EQ(stream.subscribe(), nullptr) << "a third page is over the limit";

    const std::string a = sseFrame("samples", "{\"n\":1}");  // 29 bytes
    const std::string b = sseFrame("samples", "{\"n\":2}");
    const std::string c = sseFrame("samples", "{\"n\":3}");
    stream.publish(a);
    EXPECT_EQ(fast->next(milliseconds(0)), a);
    stream.publish(b);
    stream.publish(c);  // the slow page now holds 87 bytes' worth: c does not fit
    EXPECT_EQ(fast->next(milliseconds(0)), b + c);
    EXPECT_EQ(slow->dropped(), 1u);
    EXPECT_EQ(slow->next(milliseconds(0)), sseFrame("dropped", "{\"frames\":1}") + a + b);
    EXPECT_EQ(slow->next(milliseconds(0)), "") << "the loss is told once";

    slow.reset();  // a page went away: room for another
    EXPECT_NE(stream.subscribe(), nullptr);
}

TEST(EventStreamTest, ClosingEndsAWaitingPageAndRefusesNewOnes) {
    EventStream stream(4, 1 << 20);
    auto page = stream.subscribe();
    stream.publish(sseFrame("host", "{}"));
    std::optional<std::string> last;
    std::thread reader([&] {
        while (auto frames = page->next(milliseconds(10'000))) last = frames;
    });
    stream.close();
    reader.join();  // next() answered nullopt well before its 10 s
    EXPECT_EQ(last, sseFrame("host", "{}")) << "what was queued is still read out";
    EXPECT_EQ(stream.subscribe(), nullptr);
    stream.publish(sseFrame("host", "{}"));  // harmless after close
}

}  // namespace
