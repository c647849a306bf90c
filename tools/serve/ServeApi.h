// What `serve` answers: the page and its assets, the JSON API that drives the sensors, and the
// live stream. Every request is routed and checked in one place (route(): the Host header, and
// for the API the Origin and the run's token); each resource then has one handler. Requests that
// call the library go to the controller thread and are answered from there; the others are
// answered at once. No cross-origin access is ever granted.
//
// Threads: handle() runs on the HTTP server's thread and never blocks; the parts are
// thread-safe.
#pragma once

#include <string>

#include "Session.h"
#include "serve/ApiRequest.h"
#include "serve/CheckJob.h"
#include "serve/Controller.h"
#include "serve/EventStream.h"
#include "serve/HttpServer.h"
#include "serve/RecordingControl.h"
#include "serve/RequestGuard.h"
#include "serve/SensorControls.h"

namespace kelvane::tools::serve {

// What the API drives; everything outlives it.
struct ServeParts {
    Session& session;
    EventStream& stream;
    Controller& controller;
    SensorControls& controls;
    CheckJob& check;
    RecordingControl& recording;
};

class ServeApi {
  public:
    ServeApi(ServeParts parts, RequestGuard guard);

    void handle(const HttpRequest& request, HttpServer::Respond respond);

  private:
    void answer(const PageAsset& asset, const HttpServer::Respond& respond);
    void answer(const GetInfo&, const HttpServer::Respond& respond);
    void answer(const FollowEvents&, const HttpServer::Respond& respond);
    void answer(const SetActive& request, const HttpServer::Respond& respond);
    void answer(const SetRate& request, const HttpServer::Respond& respond);
    void answer(const Flush& request, const HttpServer::Respond& respond);
    void answer(const GetDump&, const HttpServer::Respond& respond);
    void answer(const StartCheck& request, const HttpServer::Respond& respond);
    void answer(const StartRecording&, const HttpServer::Respond& respond);
    void answer(const StopRecording&, const HttpServer::Respond& respond);
    void answer(const DownloadRecording&, const HttpServer::Respond& respond);

    ServeParts mParts;
    const RequestGuard mGuard;
    const std::string mInfo;  // the /api/info body: nothing in it changes during a run
};

}  // namespace kelvane::tools::serve
