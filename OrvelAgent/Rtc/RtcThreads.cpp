#include "OrvelAgent/Rtc/RtcThreads.h"

#include <cstdlib>
#include <functional>

#include "OrvelAgent/Rtc/ShortSctpQueue.h"

namespace orvel {

namespace {

std::unique_ptr<rtc::Thread> start(std::unique_ptr<rtc::Thread> thread, const char* name) {
    thread->SetName(name, nullptr);
    if (!thread->Start()) std::abort();
    return thread;
}

int ignoredAdapters(RtcThreads::Networks networks) {
    switch (networks) {
        case RtcThreads::Networks::all:
            return rtc::ADAPTER_TYPE_LOOPBACK;
        case RtcThreads::Networks::allAndLoopback:
            return 0;
        case RtcThreads::Networks::onlyLoopback:
            return ~rtc::ADAPTER_TYPE_LOOPBACK;
    }
    return 0;
}

void initializeLibrary() {
    static const bool once = [] {
        rtc::LogMessage::LogToDebug(rtc::LS_NONE);
        return rtc::InitializeSSL();
    }();
    if (!once) std::abort();
}

class RemoteSet : public webrtc::SetRemoteDescriptionObserverInterface {
public:
    std::function<void(webrtc::RTCError)> body;
    void OnSetRemoteDescriptionComplete(webrtc::RTCError error) override { body(std::move(error)); }
};

class LocalSet : public webrtc::SetLocalDescriptionObserverInterface {
public:
    std::function<void(webrtc::RTCError)> body;
    void OnSetLocalDescriptionComplete(webrtc::RTCError error) override { body(std::move(error)); }
};

class Described : public webrtc::CreateSessionDescriptionObserver {
public:
    std::function<void(std::unique_ptr<webrtc::SessionDescriptionInterface>)> body;
    void OnSuccess(webrtc::SessionDescriptionInterface* description) override {
        body(std::unique_ptr<webrtc::SessionDescriptionInterface>(description));
    }
    void OnFailure(webrtc::RTCError) override { body(nullptr); }
};

template <class Observer, class Body>
rtc::scoped_refptr<Observer> observer(Body body) {
    auto made = rtc::make_ref_counted<Observer>();
    made->body = std::move(body);
    return made;
}

}  // namespace

RtcThreads::RtcThreads(std::unique_ptr<webrtc::VideoEncoderFactory> encoders,
                       std::unique_ptr<webrtc::VideoDecoderFactory> decoders, Networks networks)
    : network(start(rtc::Thread::CreateWithSocketServer(), "rtc-network")),
      worker(start(rtc::Thread::Create(), "rtc-worker")),
      signaling(start(rtc::Thread::Create(), "rtc-signaling")) {
    initializeLibrary();
    webrtc::PeerConnectionFactoryDependencies all;
    all.network_thread = network.get();
    all.worker_thread = worker.get();
    all.signaling_thread = signaling.get();
    all.socket_factory = network->socketserver();
    all.trials = std::make_unique<webrtc::FieldTrialBasedConfig>();
    all.task_queue_factory = webrtc::CreateDefaultTaskQueueFactory(all.trials.get());
    all.call_factory = webrtc::CreateCallFactory();
    all.event_log_factory =
        std::make_unique<webrtc::RtcEventLogFactory>(all.task_queue_factory.get());
    all.sctp_factory = std::make_unique<ShortSctpQueue>(*network);

    // Sound goes over a data channel: the library's own is there, since it must be, and does
    // nothing.
    cricket::MediaEngineDependencies media;
    media.task_queue_factory = all.task_queue_factory.get();
    media.adm = worker->BlockingCall([&] {
        return webrtc::AudioDeviceModule::Create(webrtc::AudioDeviceModule::kDummyAudio,
                                                 all.task_queue_factory.get());
    });
    media.audio_encoder_factory = webrtc::CreateBuiltinAudioEncoderFactory();
    media.audio_decoder_factory = webrtc::CreateBuiltinAudioDecoderFactory();
    media.video_encoder_factory = std::move(encoders);
    media.video_decoder_factory = std::move(decoders);
    media.trials = all.trials.get();
    all.media_engine = cricket::CreateMediaEngine(std::move(media));

    peerFactory = webrtc::CreateModularPeerConnectionFactory(std::move(all));
    if (!peerFactory) std::abort();
    webrtc::PeerConnectionFactoryInterface::Options options;
    options.network_ignore_mask = ignoredAdapters(networks);
    peerFactory->SetOptions(options);
}

RtcThreads::~RtcThreads() {
    stop([] {});
}

void RtcThreads::post(absl::AnyInvocable<void() &&> task) {
    const std::lock_guard lock(mutex);
    if (!isStopped) signaling->PostTask(std::move(task));
}

void RtcThreads::stop(absl::AnyInvocable<void() &&> last) {
    {
        const std::lock_guard lock(mutex);
        if (std::exchange(isStopped, true)) return;
    }
    signaling->BlockingCall([&] {
        std::move(last)();
        peerFactory = nullptr;
    });
    signaling->Stop();
    worker->Stop();
    network->Stop();
}

rtc::scoped_refptr<webrtc::SetRemoteDescriptionObserverInterface> whenRemoteSet(
    std::function<void(webrtc::RTCError)> body) {
    return observer<RemoteSet>(std::move(body));
}

rtc::scoped_refptr<webrtc::SetLocalDescriptionObserverInterface> whenLocalSet(
    std::function<void(webrtc::RTCError)> body) {
    return observer<LocalSet>(std::move(body));
}

rtc::scoped_refptr<webrtc::CreateSessionDescriptionObserver> whenDescribed(
    std::function<void(std::unique_ptr<webrtc::SessionDescriptionInterface>)> body) {
    return observer<Described>(std::move(body));
}

}  // namespace orvel
