// The live stream's fan-out: every page gets every batch of samples in order, a page that falls
// behind loses batches (counted, and told) without holding up the others, a state is never lost
// and a new page starts from the latest of each, and closing ends every page.
#include <gtest/gtest.h>

#include "serve/EventStream.h"

namespace {

using kelvane::tools::serve::EventStream;
using kelvane::tools::serve::sseFrame;

TEST(EventStreamTest, EveryPageGetsEverySampleBatchInOrderUntilItFallsBehind) {
    EventStream stream(2, 64);
    auto fast = stream.subscribe();
    auto slow = stream.subscribe();
    ASSERT_TRUE(fast && slow);
    EXPECT_EQ(stream.subscribe(), nullptr) << "a third page is over the limit";

    const std::string a = sseFrame("samples", "{\"n\":1}");  // 29 bytes
    const std::string b = sseFrame("samples", "{\"n\":2}");
    const std::string c = sseFrame("samples", "{\"n\":3}");
    stream.publish(a);
    EXPECT_EQ(fast->take(), a);
    stream.publish(b);
    stream.publish(c);  // the slow page now holds 87 bytes' worth: c does not fit
    EXPECT_EQ(fast->take(), b + c);
    EXPECT_EQ(slow->dropped(), 1u);
    EXPECT_EQ(slow->take(), sseFrame("dropped", "{\"frames\":1}") + a + b);
    EXPECT_EQ(slow->take(), "") << "the loss is told once";

    slow.reset();  // a page went away: room for another
    EXPECT_NE(stream.subscribe(), nullptr);
}

TEST(EventStreamTest, AStateIsNeverDroppedAndANewPageStartsFromTheLatest) {
    EventStream stream(4, 40);
    auto behind = stream.subscribe();
    stream.publishState("sensors", "{\"v\":1}");
    const std::string samples = sseFrame("samples", std::string(10, 'x'));  // 33 bytes
    stream.publish(samples);
    stream.publish(samples);  // no room: dropped
    stream.publishState("sensors", "{\"v\":2}");
    stream.publishState("check", "{}");
    // The page that fell behind still gets the latest state of each kind, once.
    EXPECT_EQ(behind->take(), sseFrame("dropped", "{\"frames\":1}") + sseFrame("check", "{}") +
                                  sseFrame("sensors", "{\"v\":2}") + samples);
    auto late = stream.subscribe();
    EXPECT_EQ(late->take(), sseFrame("check", "{}") + sseFrame("sensors", "{\"v\":2}"));
}

TEST(EventStreamTest, APageIsWokenOnceWhenThereIsSomethingToTakeAndWhenItEnds) {
    EventStream stream(4, 1 << 20);
    auto page = stream.subscribe();
    int wakes = 0;
    page->notifyWhenReady([&] { ++wakes; });
    EXPECT_EQ(wakes, 0) << "nothing to take yet";
    stream.publishState("host", "{}");
    stream.publishState("host", "{}");
    EXPECT_EQ(wakes, 1) << "woken once per wait";
    page->notifyWhenReady([&] { ++wakes; });
    EXPECT_EQ(wakes, 2) << "something waits already: woken at once";
    EXPECT_EQ(page->take(), sseFrame("host", "{}"));

    page->notifyWhenReady([&] { ++wakes; });
    stream.close();
    EXPECT_EQ(wakes, 3);
    EXPECT_EQ(page->take(), std::nullopt);
    EXPECT_EQ(stream.subscribe(), nullptr);
    stream.publish(sseFrame("host", "{}"));  // harmless after close
}

}  // namespace
