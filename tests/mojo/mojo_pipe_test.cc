#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/threading/thread.h"
#include "echo_interface.h"
#include "mojo/core/core.h"
#include "tests/support/wait.h"

namespace kelvane::testing {
namespace {

// Records what arrives, with the thread it arrived on.
class RecordingEcho : public Echo {
  public:
    void Say(int value) override {
        signal.Notify([&] {
            said.push_back(value);
            threads.push_back(std::this_thread::get_id());
        });
        if (onSay) onSay(value);
    }
    void Ask(int value, AskCallback callback) override {
        if (holdReplies) {
            held.push_back(std::move(callback));
            return;
        }
        std::move(callback).Run(value * 2);
    }

    Signal signal;
    std::vector<int> said;
    std::vector<std::thread::id> threads;
    std::function<void(int)> onSay;
    bool holdReplies = false;
    std::vector<AskCallback> held;
};

class MojoPipeTest : public ::testing::Test {
  protected:
    void SetUp() override {
        host.Start();
        client.Start();
    }
    void TearDown() override {
        // Endpoints are destroyed on their own threads before the threads stop.
        RunAndWait(client.task_runner(), [&] { ptr.reset(); });
        RunAndWait(host.task_runner(), [&] { binding.reset(); });
    }
    void BindHost(mojo::InterfaceRequest<Echo> request) {
        auto r = std::make_shared<mojo::InterfaceRequest<Echo>>(std::move(request));
        ASSERT_TRUE(RunAndWait(host.task_runner(), [&, r] {
            binding = std::make_unique<mojo::Binding<Echo>>(&impl, std::move(*r));
        }));
    }
    // Binds `ptr` on the client thread and returns the request end.
    mojo::InterfaceRequest<Echo> MakeClientPipe() {
        mojo::InterfaceRequest<Echo> request;
        RunAndWait(client.task_runner(), [&] { request = mojo::MakeRequest(&ptr); });
        return request;
    }
    bool WaitForSaid(size_t n) {
        return impl.signal.WaitUntil([&] { return impl.said.size() >= n; });
    }

    base::Thread host{"host"};
    base::Thread client{"client"};
    RecordingEcho impl;
    std::unique_ptr<mojo::Binding<Echo>> binding;
    EchoPtr ptr;
};

TEST_F(MojoPipeTest, DeliversInOrderOnTheBindingThreadAcrossThreads) {
    BindHost(MakeClientPipe());
    RunAndWait(client.task_runner(), [&] {
        for (int i = 0; i < 1000; ++i) ptr->Say(i);
    });
    ASSERT_TRUE(WaitForSaid(1000));
    std::lock_guard<std::mutex> lock(impl.signal.mutex());
    for (int i = 0; i < 1000; ++i) EXPECT_EQ(impl.said[i], i);
    for (auto id : impl.threads) EXPECT_EQ(id, host.GetThreadId());
}

TEST_F(MojoPipeTest, MessagesSentBeforeThePeerBindsWaitInThePipe) {
    mojo::InterfaceRequest<Echo> request = MakeClientPipe();
    RunAndWait(client.task_runner(), [&] {
        ptr->Say(1);
        ptr->Say(2);
    });
    // The request end travels to another thread before it is bound there.
    BindHost(std::move(request));
    ASSERT_TRUE(WaitForSaid(2));
    std::lock_guard<std::mutex> lock(impl.signal.mutex());
    EXPECT_EQ(impl.said, (std::vector<int>{1, 2}));
}

TEST_F(MojoPipeTest, ErrorHandlerRunsOnceAfterEarlierMessagesWithTheReason) {
    BindHost(MakeClientPipe());
    std::vector<std::string> events;
    Signal done;
    RunAndWait(host.task_runner(), [&] {
        impl.onSay = [&](int v) {
            done.Notify([&] { events.push_back("say " + std::to_string(v)); });
        };
        binding->set_connection_error_with_reason_handler(base::BindOnce(
            [](std::vector<std::string>* ev, Signal* d, uint32_t reason,
               const std::string& description) {
                d->Notify(
                    [&] { ev->push_back("error " + std::to_string(reason) + " " + description); });
            },
            &events, &done));
    });
    RunAndWait(client.task_runner(), [&] {
        ptr->Say(1);
        ptr->Say(2);
        ptr.ResetWithReason(7, "bye");
    });
    ASSERT_TRUE(done.WaitUntil([&] { return !events.empty() && events.back()[0] == 'e'; }));
    ASSERT_TRUE(Flush(host.task_runner()));
    EXPECT_EQ(events, (std::vector<std::string>{"say 1", "say 2", "error 7 bye"}));
}

TEST_F(MojoPipeTest, PlainCloseGivesNoReasonAndOwnCloseRunsNoOwnHandler) {
    BindHost(MakeClientPipe());
    std::atomic<int> hostErrors{0}, clientErrors{0};
    uint32_t reason = 99;
    std::string description = "unset";
    RunAndWait(host.task_runner(), [&] {
        binding->set_connection_error_with_reason_handler(base::BindOnce(
            [](std::atomic<int>* n, uint32_t* r, std::string* d, uint32_t reason,
               const std::string& desc) {
                *r = reason;
                *d = desc;
                ++*n;
            },
            &hostErrors, &reason, &description));
    });
    RunAndWait(client.task_runner(), [&] {
        ptr.set_connection_error_handler(
            base::BindOnce([](std::atomic<int>* n) { ++*n; }, &clientErrors));
        ptr.reset();
    });
    ASSERT_TRUE(Flush(host.task_runner()));
    ASSERT_TRUE(Flush(client.task_runner()));
    EXPECT_EQ(hostErrors, 1);
    EXPECT_EQ(reason, 0u);
    EXPECT_EQ(description, "");
    EXPECT_EQ(clientErrors, 0);
}

TEST_F(MojoPipeTest, RepliesRunOnTheAskingThreadEvenWhenSentFromAnotherThread) {
    BindHost(MakeClientPipe());
    RunAndWait(host.task_runner(), [&] { impl.holdReplies = true; });
    Signal replied;
    std::thread::id replyThread;
    int answer = 0;
    RunAndWait(client.task_runner(), [&] {
        ptr->Ask(21, base::BindOnce(
                         [](Signal* s, std::thread::id* t, int* a, int v) {
                             s->Notify([&] {
                                 *t = std::this_thread::get_id();
                                 *a = v;
                             });
                         },
                         &replied, &replyThread, &answer));
    });
    ASSERT_TRUE(Flush(host.task_runner()));
    std::thread other([&] { std::move(impl.held.at(0)).Run(42); });
    other.join();
    ASSERT_TRUE(replied.WaitUntil([&] { return answer == 42; }));
    EXPECT_EQ(replyThread, client.GetThreadId());
}

TEST_F(MojoPipeTest, ReplyIsDroppedWhenTheAskingPointerIsGone) {
    BindHost(MakeClientPipe());
    RunAndWait(host.task_runner(), [&] { impl.holdReplies = true; });
    std::atomic<int> replies{0};
    RunAndWait(client.task_runner(), [&] {
        ptr->Ask(1, base::BindOnce([](std::atomic<int>* n, int) { ++*n; }, &replies));
    });
    ASSERT_TRUE(Flush(host.task_runner()));
    RunAndWait(client.task_runner(), [&] { ptr.reset(); });
    RunAndWait(host.task_runner(), [&] { std::move(impl.held.at(0)).Run(2); });
    ASSERT_TRUE(Flush(client.task_runner()));
    EXPECT_EQ(replies, 0);
}

TEST_F(MojoPipeTest, AReplyToAPointerThatPassedItsPipeOnReachesNoLaterAsker) {
    BindHost(MakeClientPipe());
    RunAndWait(host.task_runner(), [&] { impl.holdReplies = true; });
    Signal replied;
    std::vector<std::string> answers;
    auto record = [&](const char* asker) {
        return base::BindOnce(
            [](Signal* s, std::vector<std::string>* a, const char* who, int v) {
                s->Notify([&] { a->push_back(std::string(who) + " " + std::to_string(v)); });
            },
            &replied, &answers, asker);
    };
    RunAndWait(client.task_runner(), [&] {
        ptr->Ask(1, record("first"));
        // The first owner's callback goes with it; the pipe, and its reply to come, go on.
        EchoPtr next(ptr.PassInterface());
        next->Ask(2, record("second"));
        ptr = std::move(next);
    });
    ASSERT_TRUE(RunAndWait(host.task_runner(), [&] {
        ASSERT_EQ(impl.held.size(), 2u);
        std::move(impl.held[0]).Run(100);  // answers the first owner's question
        std::move(impl.held[1]).Run(200);
    }));
    ASSERT_TRUE(replied.WaitUntil([&] { return !answers.empty(); }));
    ASSERT_TRUE(Flush(client.task_runner()));
    std::lock_guard<std::mutex> lock(replied.mutex());
    EXPECT_EQ(answers, std::vector<std::string>{"second 200"});
}

TEST_F(MojoPipeTest, NothingIsDispatchedAfterTheBindingIsDestroyedByAHandler) {
    BindHost(MakeClientPipe());
    RunAndWait(host.task_runner(), [&] {
        // The first message destroys the binding that delivered it.
        impl.onSay = [&](int) { binding.reset(); };
    });
    RunAndWait(client.task_runner(), [&] {
        for (int i = 0; i < 10; ++i) ptr->Say(i);
    });
    ASSERT_TRUE(WaitForSaid(1));
    ASSERT_TRUE(Flush(client.task_runner()));
    ASSERT_TRUE(Flush(host.task_runner()));
    std::lock_guard<std::mutex> lock(impl.signal.mutex());
    EXPECT_EQ(impl.said, std::vector<int>{0});
}

TEST_F(MojoPipeTest, CallsOnUnboundOrBrokenPointersAreDropped) {
    RunAndWait(client.task_runner(), [&] {
        EchoPtr unbound;
        unbound->Say(1);
        unbound->Ask(1, base::BindOnce([](int) { FAIL(); }));
        EXPECT_FALSE(unbound.is_bound());
    });
    auto request = std::make_shared<mojo::InterfaceRequest<Echo>>(MakeClientPipe());
    request.reset();  // the receiving end closes unbound
    ASSERT_TRUE(Flush(client.task_runner()));
    RunAndWait(client.task_runner(), [&] {
        EXPECT_TRUE(ptr.is_bound());
        EXPECT_TRUE(ptr.encountered_error());
        ptr->Say(1);
        ptr->Ask(1, base::BindOnce([](int) { FAIL(); }));
    });
    ASSERT_TRUE(Flush(client.task_runner()));
}

TEST_F(MojoPipeTest, ErrorHandlerMayDestroyTheOwnerOfTheEndpoint) {
    struct Owner {
        EchoPtr echo;
    };
    auto owner = std::make_unique<Owner>();
    mojo::InterfaceRequest<Echo> request;
    Signal gone;
    RunAndWait(client.task_runner(), [&] {
        request = mojo::MakeRequest(&owner->echo);
        owner->echo.set_connection_error_handler(base::BindOnce(
            [](std::unique_ptr<Owner>* o, Signal* s) { s->Notify([&] { o->reset(); }); }, &owner,
            &gone));
    });
    request = {};
    ASSERT_TRUE(gone.WaitUntil([&] { return owner == nullptr; }));
}

TEST(MojoCoreTest, HandlesCloseOnceAndTellThePeer) {
    MojoHandle a, b;
    ASSERT_EQ(MojoCreateMessagePipe(nullptr, &a, &b), MOJO_RESULT_OK);
    EXPECT_NE(a, b);
    auto endB = mojo::core::GetEndpoint(b);
    EXPECT_EQ(MojoClose(a), MOJO_RESULT_OK);
    EXPECT_EQ(MojoClose(a), MOJO_RESULT_INVALID_ARGUMENT);
    EXPECT_TRUE(endB->PeerClosed());
    EXPECT_FALSE(endB->WriteToPeer(mojo::Message()));
    EXPECT_EQ(MojoClose(b), MOJO_RESULT_OK);
}

}  // namespace
}  // namespace kelvane::testing
