// ScreenCaptureKit's contract: the shareable content, the start and the stop of a stream answer on
// any thread; samples arrive on the dispatch queue that was given with the output, the delegate's
// did-stop on any. A sample buffer may be kept, but each one kept is missing in the stream's pool
// of `queueDepth`. Only a sample whose status is "complete" has a picture. A stopped stream is not
// started again. A stop before the start has answered is refused, and the stream then runs on: so
// it waits for that answer. A stream that stopped by itself is not stopped again. NSScreen belongs
// to the main thread; a display is found there by its number.
//
// Sound is captured as long as the stream runs and dropped while nobody wants it: that it can be
// added to a running stream is nowhere promised.
#import <AppKit/AppKit.h>
#import <ScreenCaptureKit/ScreenCaptureKit.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <map>
#include <mutex>

#include "OrvelAgent/Platform/MacOS/CVPixels.h"
#include "OrvelAgent/Platform/MacOS/HostClock.h"
#include "OrvelAgent/Platform/MacOS/PcmFormatOf.h"
#include "OrvelAgent/Platform/MacOS/QueueLink.h"
#include "OrvelAgent/Platform/MacOS/Text.h"
#include "OrvelAgent/Platform/ScreenSource.h"

namespace orvel {

namespace {

static_assert(kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange == '420v');
static_assert(SCFrameStatusComplete == 0 && SCFrameStatusIdle == 1 && SCFrameStatusBlank == 2);
static_assert(SCFrameStatusSuspended == 3 && SCFrameStatusStarted == 4);
static_assert(SCFrameStatusStopped == 5);
static_assert(SCStreamErrorFailedToStartAudioCapture == -3818);

using SampleBuffer = CFOwner<CMSampleBufferRef>;

// The source's queues, for as long as the source lives.
struct Queues {
    Queues(SerialQueue& captureQueue, SerialQueue& audioQueue)
        : capture(captureQueue), audio(audioQueue) {}
    QueueLink capture, audio;
};

// What is to happen once, after something else has; both on any thread.
class Afterwards {
public:
    void happened() {
        std::function<void()> next;
        {
            const std::lock_guard hold(mutex);
            hasHappened = true;
            next = std::exchange(waiting, nullptr);
        }
        if (next) next();
    }
    void then(std::function<void()> next) {
        {
            const std::lock_guard hold(mutex);
            if (!hasHappened) {
                waiting = std::move(next);
                return;
            }
        }
        next();
    }

private:
    std::mutex mutex;  // guards the fields below
    bool hasHappened = false;
    std::function<void()> waiting;
};

// One run of a stream. What arrives on the framework's threads reaches it weakly.
struct Capture {
    Capture(SerialQueue& captureQueue, SerialQueue& soundQueue, std::shared_ptr<Queues> ways,
            ScreenSource::Handlers given)
        : queue(captureQueue),
          audioQueue(soundQueue),
          queues(std::move(ways)),
          handlers(std::move(given)) {}

    // For assertions; callbacks of the framework go by `queues`.
    SerialQueue& queue;
    SerialQueue& audioQueue;
    const std::shared_ptr<Queues> queues;
    Afterwards startAnswer;
    ScreenSource::Handlers handlers;
    bool isRunning = false;  // on `queue`: between the answer to the start and the end
    std::uint64_t sequence = 0;
    std::atomic<bool> wantsAudio{true};
    std::atomic<bool> isOver{false};  // nothing more is handed on, sound included

    void screenArrived(const SampleBuffer& buffer);
    void audioArrived(const SampleBuffer& buffer);
    void stopped(std::optional<CaptureError> error);
};

}  // namespace

}  // namespace orvel

// The stream's output and delegate.
@interface OrvelStreamReceiver : NSObject <SCStreamOutput, SCStreamDelegate>
- (instancetype)initWithCapture:(std::weak_ptr<orvel::Capture>)capture;
@end

@implementation OrvelStreamReceiver {
    std::weak_ptr<orvel::Capture> weakCapture;
}

- (instancetype)initWithCapture:(std::weak_ptr<orvel::Capture>)capture {
    if ((self = [super init])) weakCapture = std::move(capture);
    return self;
}

- (void)stream:(SCStream*)__unused stream
    didOutputSampleBuffer:(CMSampleBufferRef)sampleBuffer
                   ofType:(SCStreamOutputType)type {
    const auto capture = weakCapture.lock();
    if (!capture || !CMSampleBufferIsValid(sampleBuffer)) return;
    auto buffer = orvel::SampleBuffer::retaining(sampleBuffer);
    if (type == SCStreamOutputTypeScreen) {
        capture->queues->capture.post([weak = weakCapture, buffer = std::move(buffer)] {
            if (const auto live = weak.lock()) live->screenArrived(buffer);
        });
    } else if (type == SCStreamOutputTypeAudio && capture->wantsAudio) {
        capture->queues->audio.post([weak = weakCapture, buffer = std::move(buffer)] {
            if (const auto live = weak.lock()) live->audioArrived(buffer);
        });
    }
}

- (void)stream:(SCStream*)__unused stream didStopWithError:(NSError*)error {
    const auto capture = weakCapture.lock();
    if (!capture) return;
    capture->queues->capture.post(
        [weak = weakCapture, text = orvel::textOf(error.localizedDescription)] {
            if (const auto live = weak.lock()) live->stopped(orvel::CaptureError{text});
        });
}

@end

namespace orvel {

namespace {

std::optional<CaptureError> captureError(NSError* error) {
    if (!error) return std::nullopt;
    return CaptureError{textOf(error.localizedDescription)};
}

// nullopt: the sample says nothing of itself. Sixty times a second on a thread without an
// autorelease pool of its own.
std::optional<SCFrameStatus> statusOf(CMSampleBufferRef sample) {
    @autoreleasepool {
        NSArray* const all =
            (__bridge NSArray*)CMSampleBufferGetSampleAttachmentsArray(sample, false);
        NSDictionary* const first = all.firstObject;
        NSNumber* const status = first[SCStreamFrameInfoStatus];
        if (![status isKindOfClass:NSNumber.class]) return std::nullopt;
        return static_cast<SCFrameStatus>(status.integerValue);
    }
}

void Capture::screenArrived(const SampleBuffer& buffer) {
    queue.assertCurrent();
    const auto status = statusOf(buffer.get());
    if (!isRunning || !status || *status < SCFrameStatusComplete ||
        *status > SCFrameStatusStopped) {
        return;
    }
    ScreenSource::Sample sample;
    sample.status = static_cast<ScreenSource::SampleStatus>(*status);
    if (*status == SCFrameStatusComplete) {
        const CVImageBufferRef image = CMSampleBufferGetImageBuffer(buffer.get());
        if (image) sample.image = CVPixels::make(image, ++sequence);
        if (!sample.image) return;
        const CMTime time = CMSampleBufferGetPresentationTimeStamp(buffer.get());
        if (CMTIME_IS_NUMERIC(time)) sample.time = monotonicTimeOf(time);
    }
    handlers.onSample(sample);
}

void Capture::audioArrived(const SampleBuffer& buffer) {
    audioQueue.assertCurrent();
    if (isOver || !wantsAudio || !handlers.onAudio) return;
    const auto* description = CMAudioFormatDescriptionGetStreamBasicDescription(
        CMSampleBufferGetFormatDescription(buffer.get()));
    const auto format = description ? pcmFormatOf(*description) : std::nullopt;
    if (!format) return;

    // Room for a buffer each of as many channels as there ever are.
    constexpr std::size_t maxChannels = 8;
    struct {
        AudioBufferList list;
        AudioBuffer others[maxChannels - 1];
    } storage;
    std::size_t needed = 0;
    CFOwner<CMBlockBufferRef> memory;
    if (CMSampleBufferGetAudioBufferListWithRetainedBlockBuffer(
            buffer.get(), &needed, nullptr, 0, nullptr, nullptr, 0, nullptr) != noErr ||
        needed > sizeof storage ||
        CMSampleBufferGetAudioBufferListWithRetainedBlockBuffer(
            buffer.get(), nullptr, &storage.list, needed, nullptr, nullptr,
            kCMSampleBufferFlag_AudioBufferList_Assure16ByteAlignment, memory.receive()) != noErr) {
        return;
    }
    std::array<ByteView, maxChannels> views;
    const AudioBuffer* const buffers = storage.list.mBuffers;
    const std::size_t count = std::min<std::size_t>(storage.list.mNumberBuffers, maxChannels);
    for (std::size_t i = 0; i < count; ++i) {
        views[i] = {static_cast<const std::uint8_t*>(buffers[i].mData), buffers[i].mDataByteSize};
    }
    handlers.onAudio({*format, static_cast<std::size_t>(CMSampleBufferGetNumSamples(buffer.get())),
                      std::span<const ByteView>(views).first(count)});
}

void Capture::stopped(std::optional<CaptureError> error) {
    queue.assertCurrent();
    if (!std::exchange(isRunning, false)) return;
    isOver = true;
    if (handlers.onStop) handlers.onStop(std::move(error));
}

SCStreamConfiguration* streamConfiguration(const ScreenSource::Configuration& wanted) {
    SCStreamConfiguration* const configuration = [[SCStreamConfiguration alloc] init];
    configuration.width = static_cast<std::size_t>(wanted.width);
    configuration.height = static_cast<std::size_t>(wanted.height);
    configuration.minimumFrameInterval = CMTimeMake(1, wanted.framesPerSecond);
    configuration.pixelFormat = kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange;
    configuration.colorSpaceName = kCGColorSpaceSRGB;
    configuration.colorMatrix = kCGDisplayStreamYCbCrMatrix_ITU_R_601_4;  // as PixelBuffer says
    configuration.showsCursor = wanted.showsCursor;
    configuration.queueDepth = wanted.queueDepth;
    configuration.capturesAudio = YES;
    configuration.sampleRate = wanted.audioSampleRate;
    configuration.channelCount = wanted.audioChannels;
    configuration.excludesCurrentProcessAudio = wanted.excludesOwnAudio;
    return configuration;
}

std::optional<int> pixelWidthOf(CGDirectDisplayID display) {
    const CFOwner<CGDisplayModeRef> mode(CGDisplayCopyDisplayMode(display));
    if (!mode) return std::nullopt;
    return static_cast<int>(CGDisplayModeGetPixelWidth(mode.get()));
}

ScreenSource::DisplayDescription describe(SCDisplay* display, NSString* name) {
    const CGDirectDisplayID number = display.displayID;
    return {number,
            textOf(name),
            static_cast<double>(display.width),
            static_cast<double>(display.height),
            pixelWidthOf(number),
            number == CGMainDisplayID()};
}

// On the main thread.
NSDictionary<NSNumber*, NSString*>* screenNames() {
    NSMutableDictionary<NSNumber*, NSString*>* const names = [NSMutableDictionary dictionary];
    for (NSScreen* screen in NSScreen.screens) {
        NSNumber* const number = screen.deviceDescription[@"NSScreenNumber"];
        if (number) names[@(number.unsignedIntValue)] = screen.localizedName;
    }
    return names;
}

class SCScreenSource final : public ScreenSource {
public:
    SCScreenSource(SerialQueue& captureQueue, SerialQueue& soundQueue)
        : queue(captureQueue), audioQueue(soundQueue) {}

    ~SCScreenSource() override {
        queues->capture.cut();
        queues->audio.cut();
        if (stream) endStream(nullptr);
    }

    void listDisplays(std::function<void(DisplayList)> completion) override {
        queue.assertCurrent();
        const std::weak_ptr<SCScreenSource*> weak = weakSelf;
        const auto ways = queues;
        [SCShareableContent
            getShareableContentExcludingDesktopWindows:NO
                                   onScreenWindowsOnly:YES
                                     completionHandler:^(SCShareableContent* content,
                                                         NSError* error) {
                                       describeDisplays(weak, ways, content.displays,
                                                        captureError(error), completion);
                                     }];
    }

    void start(const Configuration& configuration, Handlers handlers,
               std::function<void(std::optional<CaptureError>)> completion) override {
        queue.assertCurrent();
        const auto display = displays.find(configuration.displayID);
        if (display == displays.end()) {
            queue.post([completion] { completion(CaptureError{"there is no such display"}); });
            return;
        }
        capture = newCapture(std::move(handlers), configuration.capturesAudio);
        startStream(display->second, streamConfiguration(configuration), std::move(completion));
    }

    void setCapturesAudio(bool captures) override {
        queue.assertCurrent();
        if (capture) capture->wantsAudio = captures;
    }

    void stop(std::function<void()> completion) override {
        queue.assertCurrent();
        if (!stream) {
            queue.post([completion] { completion(); });
            return;
        }
        endStream(std::move(completion));
    }

private:
    static void describeDisplays(std::weak_ptr<SCScreenSource*> weak, std::shared_ptr<Queues> ways,
                                 NSArray<SCDisplay*>* found, std::optional<CaptureError> error,
                                 std::function<void(DisplayList)> completion) {
        dispatch_async(dispatch_get_main_queue(), ^{
          NSDictionary<NSNumber*, NSString*>* const names = screenNames();
          DisplayList list{{}, error};
          std::map<std::uint32_t, SCDisplay*> byNumber;
          for (SCDisplay* display in found) {
              list.displays.push_back(describe(display, names[@(display.displayID)]));
              byNumber[display.displayID] = display;
          }
          ways->capture.post([weak, completion, list, byNumber] {
              const auto self = weak.lock();
              if (!self) return;
              (*self)->displays = byNumber;
              completion(list);
          });
        });
    }

    std::shared_ptr<Capture> newCapture(Handlers handlers, bool wantsAudio) {
        auto fresh = std::make_shared<Capture>(queue, audioQueue, queues, std::move(handlers));
        fresh->sequence = lastSequence;
        fresh->wantsAudio = wantsAudio;
        return fresh;
    }

    void startStream(SCDisplay* display, SCStreamConfiguration* configuration,
                     std::function<void(std::optional<CaptureError>)> completion) {
        SCContentFilter* const filter = [[SCContentFilter alloc] initWithDisplay:display
                                                                excludingWindows:@[]];
        receiver = [[OrvelStreamReceiver alloc] initWithCapture:capture];
        stream = [[SCStream alloc] initWithFilter:filter
                                    configuration:configuration
                                         delegate:receiver];
        NSError* error = nil;
        if (![stream addStreamOutput:receiver
                                type:SCStreamOutputTypeScreen
                  sampleHandlerQueue:sampleQueue
                               error:&error] ||
            ![stream addStreamOutput:receiver
                                type:SCStreamOutputTypeAudio
                  sampleHandlerQueue:sampleQueue
                               error:&error]) {
            forgetStream();
            queue.post([completion, failed = captureError(error)] {
                completion(failed.value_or(CaptureError{"no output could be added"}));
            });
            return;
        }
        const std::weak_ptr<SCScreenSource*> weak = weakSelf;
        const auto begun = capture;
        [stream startCaptureWithCompletionHandler:^(NSError* failure) {
          begun->queues->capture.post([weak, begun, display, configuration, failure, completion] {
              const auto self = weak.lock();
              if (!self) return;
              if (begun != (*self)->capture) return completion(std::nullopt);  // stopped since
              (*self)->started(display, configuration, failure, completion);
          });
          begun->startAnswer.happened();
        }];
    }

    void started(SCDisplay* display, SCStreamConfiguration* configuration, NSError* failure,
                 const std::function<void(std::optional<CaptureError>)>& completion) {
        queue.assertCurrent();
        if (failure && [failure.domain isEqualToString:SCStreamErrorDomain] &&
            failure.code == SCStreamErrorFailedToStartAudioCapture && configuration.capturesAudio) {
            configuration.capturesAudio = NO;  // the picture alone, then
            capture = newCapture(capture->handlers, capture->wantsAudio);
            return startStream(display, configuration, completion);
        }
        if (failure) {
            forgetStream();
        } else {
            capture->isRunning = true;
        }
        completion(captureError(failure));
    }

    // Stop, then take the outputs off, then let go; sound that is on its way goes through its queue
    // first.
    void endStream(std::function<void()> completion) {
        SCStream* const ending = stream;
        OrvelStreamReceiver* const outputs = receiver;
        const auto ended = capture;
        const bool runs = !ended->isOver;
        ended->isRunning = false;
        forgetStream();
        void (^const letGo)(NSError*) = ^(NSError* __unused error) {
          [ending removeStreamOutput:outputs type:SCStreamOutputTypeScreen error:nil];
          [ending removeStreamOutput:outputs type:SCStreamOutputTypeAudio error:nil];
          if (!completion) return;
          ended->queues->audio.post([ended, completion] {
              ended->isOver = true;
              ended->queues->capture.post([completion] { completion(); });
          });
        };
        ended->startAnswer.then([ending, runs, letGo] {
            if (runs) {
                [ending stopCaptureWithCompletionHandler:letGo];
            } else {
                letGo(nil);
            }
        });
    }

    void forgetStream() {
        if (capture) lastSequence = capture->sequence;
        capture.reset();
        stream = nil;
        receiver = nil;
    }

    SerialQueue& queue;
    SerialQueue& audioQueue;
    const std::shared_ptr<Queues> queues = std::make_shared<Queues>(queue, audioQueue);
    const dispatch_queue_t sampleQueue = dispatch_queue_create(
        "orvel.samples", dispatch_queue_attr_make_with_qos_class(DISPATCH_QUEUE_SERIAL,
                                                                 QOS_CLASS_USER_INTERACTIVE, 0));
    // All of these on `queue`.
    std::map<std::uint32_t, SCDisplay*> displays;  // as listed last
    std::shared_ptr<Capture> capture;
    SCStream* stream = nil;
    OrvelStreamReceiver* receiver = nil;
    std::uint64_t lastSequence = 0;
    // Answers that come after this source is gone find it expired.
    const std::shared_ptr<SCScreenSource*> life = std::make_shared<SCScreenSource*>(this);
    const std::weak_ptr<SCScreenSource*> weakSelf = life;
};

}  // namespace

std::unique_ptr<ScreenSource> ScreenSource::create(SerialQueue& captureQueue,
                                                   SerialQueue& audioQueue) {
    return std::make_unique<SCScreenSource>(captureQueue, audioQueue);
}

}  // namespace orvel
