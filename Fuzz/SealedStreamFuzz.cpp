// The receive path of a secured connection: outer frames, boxes, inner frames, their content. The
// input says what the phone seals and what happens to the stream on its way: cut anywhere, boxes
// damaged, dropped, swapped, repeated, foreign bytes between them.

#include <deque>

#include "Fuzz/Fuzz.h"
#include "Fuzz/Pieces.h"
#include "OrvelKit/Secure/SecureHandshake.h"
#include "OrvelKit/Secure/SecureSession.h"
#include "OrvelKit/Wire/Control.h"
#include "OrvelKit/Wire/Files.h"
#include "OrvelKit/Wire/Framing.h"
#include "OrvelKit/Wire/Media.h"

namespace orvel {
namespace {

const SymmetricKey keyA = {1, 2, 3}, keyB = {4, 5, 6};

Bytes copyOf(ByteView bytes) {
    return {bytes.begin(), bytes.end()};
}

class Receiver {
public:
    explicit Receiver(const std::deque<Bytes>& plaintextsSealed) : sealed(plaintextsSealed) {}

    // False when the connection has ended.
    bool receive(ByteView chunk) {
        try {
            while (auto frame = outer.next(chunk, {FrameKind::sealed, 65536})) {
                const auto plaintext = session.openInPlace(frame->payload);
                claim(opened < sealed.size() && copyOf(plaintext) == sealed[opened],
                      "boxes open in the order in which they were sealed, each once");
                ++opened;
                for (const auto& innerFrame : inner.feed(plaintext))
                    decode(innerFrame);
            }
        } catch (const FramingError&) {
            return false;
        } catch (const AuthenticationError&) {
            return false;
        } catch (const SecureHandshake::Failure& failure) {
            claim(failure.code == SecureHandshake::Failure::Code::malformed, "a short box");
            return false;
        } catch (const ControlError&) {
            return false;
        }
        return true;
    }

    std::size_t openedBoxes() const { return opened; }

private:
    static void decode(const Frame& frame) {
        switch (frame.kind) {
            case FrameKind::control:
                Framing::decodeControl(frame.payload);
                break;
            case FrameKind::videoFormat:
                VideoFormat::decode(frame.payload);
                break;
            case FrameKind::videoFrame:
                VideoFrame::decode(frame.payload);
                break;
            case FrameKind::audio:
                AudioPacket::decode(frame.payload);
                break;
            case FrameKind::file:
                FileFrame::decode(frame.payload);
                break;
            case FrameKind::handshake:
            case FrameKind::sealed:
                break;  // known kinds, ignored inside the seal
        }
    }

    const std::deque<Bytes>& sealed;
    std::size_t opened = 0;
    SecureSession session{keyB, keyA};
    FrameParser outer, inner;
};

void run(Pieces script) {
    SecureSession phone(keyA, keyB);
    std::deque<Bytes> sealed;   // every plaintext, in order
    std::deque<Bytes> waiting;  // frames for the wire
    Bytes last;                 // the frame sent last
    bool untouched = true;
    std::size_t sent = 0;
    Receiver receiver(sealed);

    const auto seal = [&](Bytes plaintext) {
        waiting.push_back(Framing::encode(FrameKind::sealed, phone.seal(plaintext)));
        sealed.push_back(std::move(plaintext));
    };
    const auto send = [&](ByteView bytes) {
        const bool alive = receiver.receive(bytes);
        if (untouched && !alive) return false;  // the phone itself sealed nonsense
        if (untouched) claim(receiver.openedBoxes() == sent, "what arrives whole is opened");
        return alive;
    };
    while (!script.isEmpty()) {
        const auto step = script.byte() % 8;
        if (step == 0) {
            const FrameKind kind{script.byte()};
            seal(Framing::encode(kind, script.piece()));
        } else if (step == 1) {
            seal(copyOf(script.piece()));
        } else if (step == 2) {
            untouched = false;
            if (!send(script.piece())) return;
        } else if (step == 3) {
            untouched = false;
            if (!send(last)) return;
        } else if (!waiting.empty()) {
            if (step == 4) {
                untouched = false;
                waiting.pop_front();
                continue;
            }
            if (step == 5) {
                if (waiting.size() > 1) {
                    untouched = false;
                    std::swap(waiting[0], waiting[1]);
                }
                continue;
            }
            last = std::move(waiting.front());
            waiting.pop_front();
            if (step == 6) {
                const std::size_t position = script.byte() + 3 * script.byte();
                const std::uint8_t bits = script.byte();
                last[position % last.size()] ^= bits;
                if (bits != 0) untouched = false;
            }
            ++sent;
            const auto cut = script.byte() % last.size();
            if (!receiver.receive(ByteView(last).first(cut))) return;
            if (!send(ByteView(last).subspan(cut))) return;
        }
    }
}

}  // namespace
}  // namespace orvel

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    orvel::run(orvel::Pieces({data, size}));
    return 0;
}
