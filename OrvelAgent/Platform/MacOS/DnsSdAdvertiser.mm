// dns_sd's contract: a registration lasts as long as its reference; the responder renames it when
// another host has the name. With a dispatch queue set, callbacks come on that queue, and the
// reference is deallocated there. When the responder goes, the callback says so once, and the
// reference is of no more use. An empty TXT record is what "none" is on the wire. Peer-to-peer
// links are left out unless they are asked for; ports are in network order.
#include <arpa/inet.h>
#include <dispatch/dispatch.h>
#include <dns_sd.h>

#include <utility>

#include "OrvelAgent/Platform/ServiceAdvertiser.h"

namespace orvel {

namespace {

static_assert(kDNSServiceInterfaceIndexAny == 0);
static_assert(kDNSServiceErr_NoError == 0);

constexpr std::int64_t retryDelay = 5 * NSEC_PER_SEC;

// Everything on its own queue, apart from making it.
struct Registration : std::enable_shared_from_this<Registration> {
    Registration(std::string serviceName, std::string serviceType, std::uint16_t servicePort)
        : name(std::move(serviceName)), type(std::move(serviceType)), port(servicePort) {}

    const std::string name, type;
    const std::uint16_t port;
    const dispatch_queue_t queue = dispatch_queue_create("orvel.dns-sd", DISPATCH_QUEUE_SERIAL);
    DNSServiceRef service = nullptr;
    bool isWanted = true;

    void begin() {
        if (!isWanted || service) return;
        const DNSServiceErrorType error = DNSServiceRegister(
            &service, kDNSServiceFlagsIncludeP2P, kDNSServiceInterfaceIndexAny, name.c_str(),
            type.c_str(), /*domain=*/nullptr, /*host=*/nullptr, htons(port), /*txtLen=*/0,
            /*txtRecord=*/nullptr, answered, this);
        if (error != kDNSServiceErr_NoError) {
            service = nullptr;
            return beginLater();
        }
        if (DNSServiceSetDispatchQueue(service, queue) != kDNSServiceErr_NoError) {
            end();
            beginLater();
        }
    }

    void end() {
        if (service) DNSServiceRefDeallocate(std::exchange(service, nullptr));
    }

    // While it is registered, whoever ends it holds it: see DnsSdAdvertiser::stop().
    static void DNSSD_API answered(DNSServiceRef, DNSServiceFlags, DNSServiceErrorType error,
                                   const char*, const char*, const char*, void* context) {
        if (error == kDNSServiceErr_NoError) return;
        auto* const self = static_cast<Registration*>(context);
        self->end();
        self->beginLater();
    }

    void beginLater() {
        const std::weak_ptr<Registration> weak = weak_from_this();
        dispatch_after(dispatch_time(DISPATCH_TIME_NOW, retryDelay), queue, ^{
          if (const auto self = weak.lock()) self->begin();
        });
    }
};

class DnsSdAdvertiser final : public ServiceAdvertiser {
public:
    ~DnsSdAdvertiser() override { stop(); }

    void start(const std::string& name, const std::string& type, std::uint16_t port) override {
        registration = std::make_shared<Registration>(name, type, port);
        const auto started = registration;
        dispatch_async(started->queue, ^{
          started->begin();
        });
    }

    // The block is the last to hold it, so that it ends on its queue and nothing comes after.
    void stop() override {
        if (!registration) return;
        const auto stopped = std::move(registration);
        dispatch_async(stopped->queue, ^{
          stopped->isWanted = false;
          stopped->end();
        });
    }

private:
    std::shared_ptr<Registration> registration;
};

}  // namespace

std::unique_ptr<ServiceAdvertiser> ServiceAdvertiser::create() {
    return std::make_unique<DnsSdAdvertiser>();
}

}  // namespace orvel
