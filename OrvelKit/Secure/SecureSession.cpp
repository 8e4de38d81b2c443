#include "OrvelKit/Secure/SecureSession.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <mutex>
#include <optional>
#include <vector>

#include "OrvelKit/Secure/Crypto.h"
#include "OrvelKit/Secure/SecureHandshake.h"
#include "OrvelKit/Wire/Framing.h"

namespace orvel {

namespace {

static_assert(SecureSession::tagLength == FrameBuffer::tailroom);

void must(bool succeeded, const char* operation) {
    if (succeeded) return;
    std::fprintf(stderr, "orvel: %s\n", operation);
    std::abort();
}

std::size_t plaintextLength(ByteView box) {
    if (box.size() < SecureSession::tagLength) {
        throw SecureHandshake::Failure(SecureHandshake::Failure::Code::malformed);
    }
    return box.size() - SecureSession::tagLength;
}

// One direction's cipher with the key set up once; each box sets the nonce only.
class Cipher {
public:
    enum class Direction { open = 0, seal = 1 };

    Cipher(Direction direction, const SymmetricKey& key) : context(EVP_CIPHER_CTX_new()) {
        must(context && EVP_CipherInit_ex(context.get(), EVP_chacha20_poly1305(), nullptr,
                                          key.data(), nullptr, static_cast<int>(direction)) == 1,
             "cipher set-up failed");
    }

    // `to` may be `from`.
    void seal(std::uint64_t counter, const std::uint8_t* from, std::size_t length, std::uint8_t* to,
              std::uint8_t* tag) {
        begin(counter);
        update(from, length, to);
        must(finish() && EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_GET_TAG,
                                             SecureSession::tagLength, tag) == 1,
             "sealing failed");
    }

    // False when the tag does not verify; what `to` then holds is worthless.
    bool open(std::uint64_t counter, const std::uint8_t* from, std::size_t length, std::uint8_t* to,
              const std::uint8_t* tag) {
        begin(counter);
        must(EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_SET_TAG, SecureSession::tagLength,
                                 const_cast<std::uint8_t*>(tag)) == 1,
             "opening failed");
        update(from, length, to);
        return finish();
    }

private:
    void begin(std::uint64_t counter) {
        std::uint8_t nonce[12] = {};
        storeBE64(nonce + 4, counter);
        must(EVP_CipherInit_ex(context.get(), nullptr, nullptr, nullptr, nonce, -1) == 1,
             "cipher set-up failed");
    }

    void update(const std::uint8_t* from, std::size_t length, std::uint8_t* to) {
        constexpr std::size_t pieceLength = 1 << 20;  // the library counts in int
        while (length > 0) {
            const std::size_t piece = std::min(length, pieceLength);
            int written = 0;
            must(EVP_CipherUpdate(context.get(), to, &written, from, static_cast<int>(piece)) == 1,
                 "cipher failed");
            from += piece;
            to += piece;
            length -= piece;
        }
    }

    bool finish() {
        std::uint8_t none[1];
        int written = 0;
        return EVP_CipherFinal_ex(context.get(), none, &written) == 1;
    }

    struct Free {
        void operator()(EVP_CIPHER_CTX* cipher) const { EVP_CIPHER_CTX_free(cipher); }
    };
    std::unique_ptr<EVP_CIPHER_CTX, Free> context;
};

}  // namespace

struct SecureSession::Sending {
    explicit Sending(const SymmetricKey& sendKey) : key(sendKey) {}
    ~Sending() { wipe(key); }

    void seal(const std::uint8_t* from, std::size_t length, std::uint8_t* to, std::uint8_t* tag) {
        std::optional<Cipher> cipher;
        std::uint64_t counter;
        {
            const std::lock_guard guard(lock);
            must(sendCounter != std::numeric_limits<std::uint64_t>::max(),
                 "message counter at its end");
            counter = sendCounter++;
            if (!idle.empty()) {
                cipher.emplace(std::move(idle.back()));
                idle.pop_back();
            }
        }
        if (!cipher) cipher.emplace(Cipher::Direction::seal, key);
        cipher->seal(counter, from, length, to, tag);
        const std::lock_guard guard(lock);
        idle.push_back(std::move(*cipher));
    }

    SymmetricKey key;
    std::mutex lock;                // guards what follows
    std::uint64_t sendCounter = 0;  // boxes sealed so far
    std::vector<Cipher> idle;       // as many as threads have sealed at once: one, mostly
};

struct SecureSession::Receiving {
    Cipher cipher;
    std::uint64_t receiveCounter = 0;  // boxes opened so far

    // `to` may be the box.
    void open(ByteView box, std::uint8_t* to) {
        const std::size_t length = plaintextLength(box);
        if (!cipher.open(receiveCounter, box.data(), length, to, box.data() + length)) {
            throw AuthenticationError();
        }
        must(receiveCounter != std::numeric_limits<std::uint64_t>::max(),
             "message counter at its end");
        ++receiveCounter;
    }
};

SecureSession::SecureSession(const SymmetricKey& sendKey, const SymmetricKey& receiveKey)
    : sending(std::make_unique<Sending>(sendKey)),
      receiving(new Receiving{Cipher(Cipher::Direction::open, receiveKey)}) {}

SecureSession::~SecureSession() = default;

Bytes SecureSession::seal(ByteView plaintext) {
    Bytes box(plaintext.size() + tagLength);
    sending->seal(plaintext.data(), plaintext.size(), box.data(), box.data() + plaintext.size());
    return box;
}

ByteView SecureSession::sealFrame(FrameBuffer& buffer) {
    const auto whole = buffer.whole();
    const auto frame =
        whole.subspan(Framing::headerLength, Framing::headerLength + buffer.payloadLength());
    // Ciphertext does not begin with this frame's header.
    must(frame[0] == static_cast<std::uint8_t>(buffer.kind()) &&
             loadBE32(frame.data() + 1) == buffer.payloadLength(),
         "a frame was sealed twice");
    Framing::storeHeader(whole.data(), FrameKind::sealed, frame.size() + tagLength);
    sending->seal(frame.data(), frame.size(), frame.data(), frame.data() + frame.size());
    return whole;
}

Bytes SecureSession::open(ByteView box) {
    Bytes plaintext(plaintextLength(box));
    receiving->open(box, plaintext.data());
    return plaintext;
}

ByteView SecureSession::openInPlace(std::span<std::uint8_t> box) {
    const auto plaintext = box.first(plaintextLength(box));
    receiving->open(box, plaintext.data());
    return plaintext;
}

}  // namespace orvel
