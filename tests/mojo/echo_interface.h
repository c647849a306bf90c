// A two-method interface written the way generated bindings are, to test the pipe machinery
// without the host interfaces.
#pragma once

#include <memory>
#include <utility>

#include "base/callback.h"
#include "mojo/public/cpp/bindings/binding.h"
#include "mojo/public/cpp/bindings/interface_ptr.h"
#include "mojo/public/cpp/bindings/message.h"

namespace kelvane::testing {

class EchoProxy;
class EchoStub;

class Echo {
  public:
    static constexpr char Name_[] = "test.Echo";
    using Proxy_ = EchoProxy;
    using Stub_ = EchoStub;
    using AskCallback = base::OnceCallback<void(int)>;
    virtual ~Echo() = default;
    virtual void Say(int value) = 0;
    virtual void Ask(int value, AskCallback callback) = 0;
};
using EchoPtr = mojo::InterfacePtr<Echo>;

constexpr uint32_t kEcho_Say_Name = 0;
constexpr uint32_t kEcho_Ask_Name = 1;

struct EchoIntParams : mojo::internal::MessagePayload {
    explicit EchoIntParams(int v) : value(v) {}
    int value;
};

class EchoAskForward : public mojo::MessageReceiver {
  public:
    explicit EchoAskForward(Echo::AskCallback cb) : mCallback(std::move(cb)) {}
    bool Accept(mojo::Message* m) override {
        std::move(mCallback).Run(m->payload<EchoIntParams>()->value);
        return true;
    }

  private:
    Echo::AskCallback mCallback;
};

class EchoProxy : public Echo {
  public:
    explicit EchoProxy(mojo::MessageReceiverWithResponder* receiver) : mReceiver(receiver) {}
    void Say(int value) override {
        mojo::Message m(kEcho_Say_Name, 0, std::make_unique<EchoIntParams>(value));
        mReceiver->Accept(&m);
    }
    void Ask(int value, AskCallback callback) override {
        mojo::Message m(kEcho_Ask_Name, mojo::Message::kFlagExpectsResponse,
                        std::make_unique<EchoIntParams>(value));
        mReceiver->AcceptWithResponder(&m, std::make_unique<EchoAskForward>(std::move(callback)));
    }

  private:
    mojo::MessageReceiverWithResponder* mReceiver;
};

class EchoStub : public mojo::MessageReceiverWithResponder {
  public:
    void set_sink(Echo* sink) { mSink = sink; }
    Echo* sink() { return mSink; }
    bool Accept(mojo::Message* m) override {
        if (m->name() != kEcho_Say_Name) return false;
        mSink->Say(m->payload<EchoIntParams>()->value);
        return true;
    }
    bool AcceptWithResponder(mojo::Message* m,
                             std::unique_ptr<mojo::MessageReceiver> responder) override {
        if (m->name() != kEcho_Ask_Name) return false;
        mSink->Ask(m->payload<EchoIntParams>()->value,
                   base::BindOnce(
                       [](std::unique_ptr<mojo::MessageReceiver> r, int v) {
                           mojo::Message reply(kEcho_Ask_Name, mojo::Message::kFlagIsResponse,
                                               std::make_unique<EchoIntParams>(v));
                           r->Accept(&reply);
                       },
                       std::move(responder)));
        return true;
    }

  private:
    Echo* mSink = nullptr;
};

}  // namespace kelvane::testing
