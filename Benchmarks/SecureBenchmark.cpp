#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <cstdlib>
#include <memory>

#include "Benchmarks/Interleaved.h"
#include "OrvelKit/Secure/SecureSession.h"
#include "OrvelKit/Wire/FrameBuffer.h"
#include "OrvelKit/Wire/Framing.h"

// Sealing and opening, against the library's cipher called with as little around it as possible:
// contexts with the key set up once, the nonce of each message, in place.

namespace orvel {
namespace {

const SymmetricKey keyA = {1, 2, 3}, keyB = {4, 5, 6};

void must(bool succeeded) {
    if (!succeeded) std::abort();
}

class BareCipher {
public:
    BareCipher() {
        must(EVP_EncryptInit_ex(sealing.get(), EVP_chacha20_poly1305(), nullptr, keyA.data(),
                                nullptr) == 1);
        must(EVP_DecryptInit_ex(opening.get(), EVP_chacha20_poly1305(), nullptr, keyA.data(),
                                nullptr) == 1);
    }

    // `box`: plaintext and room for the tag.
    void sealAndOpen(std::span<std::uint8_t> box) {
        std::uint8_t nonce[12] = {};
        storeBE64(nonce + 4, counter++);
        const int length = static_cast<int>(box.size() - SecureSession::tagLength);
        std::uint8_t* tag = box.data() + length;
        int written = 0;
        must(EVP_EncryptInit_ex(sealing.get(), nullptr, nullptr, nullptr, nonce) == 1);
        must(EVP_EncryptUpdate(sealing.get(), box.data(), &written, box.data(), length) == 1);
        must(EVP_EncryptFinal_ex(sealing.get(), tag, &written) == 1);
        must(EVP_CIPHER_CTX_ctrl(sealing.get(), EVP_CTRL_AEAD_GET_TAG, 16, tag) == 1);

        must(EVP_DecryptInit_ex(opening.get(), nullptr, nullptr, nullptr, nonce) == 1);
        must(EVP_CIPHER_CTX_ctrl(opening.get(), EVP_CTRL_AEAD_SET_TAG, 16, tag) == 1);
        must(EVP_DecryptUpdate(opening.get(), box.data(), &written, box.data(), length) == 1);
        must(EVP_DecryptFinal_ex(opening.get(), tag, &written) == 1);
    }

private:
    struct Free {
        void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
    };
    using Context = std::unique_ptr<EVP_CIPHER_CTX, Free>;
    Context sealing{EVP_CIPHER_CTX_new()}, opening{EVP_CIPHER_CTX_new()};
    std::uint64_t counter = 0;
};

// One frame's buffer, sealed and opened where it lies; opening restores the frame.
class SessionPair {
public:
    explicit SessionPair(std::size_t payloadLength)
        : buffer(FrameKind::file, Bytes(payloadLength, 0x5A)) {}

    void sealAndOpen() {
        agent.sealFrame(buffer);
        const auto opened = phone.openInPlace(buffer.whole().subspan(Framing::headerLength));
        benchmark::DoNotOptimize(opened.data());
    }

private:
    SecureSession agent{keyA, keyB}, phone{keyB, keyA};
    FrameBuffer buffer;
};

void countBytes(benchmark::State& state) {
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void secureBare(benchmark::State& state) {
    BareCipher cipher;
    Bytes box(static_cast<std::size_t>(state.range(0)) + SecureSession::tagLength, 0x5A);
    for (auto _ : state)
        cipher.sealAndOpen(box);
    countBytes(state);
}
BENCHMARK(secureBare)->Arg(100)->Arg(1400)->Arg(65536)->Arg(1 << 20);

void secureInPlace(benchmark::State& state) {
    SessionPair pair(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
        pair.sealAndOpen();
    countBytes(state);
}
BENCHMARK(secureInPlace)->Arg(100)->Arg(1400)->Arg(65536)->Arg(1 << 20);

void secureCopying(benchmark::State& state) {
    SecureSession agent(keyA, keyB), phone(keyB, keyA);
    const Bytes plaintext(static_cast<std::size_t>(state.range(0)), 0x5A);
    for (auto _ : state)
        benchmark::DoNotOptimize(phone.open(agent.seal(plaintext)));
    countBytes(state);
}
BENCHMARK(secureCopying)->Arg(100)->Arg(1400)->Arg(65536)->Arg(1 << 20);

// The promise: at 64 KiB no more than a tenth slower than the bare cipher.
void secureInPlaceAgainstBare(benchmark::State& state) {
    const auto length = static_cast<std::size_t>(state.range(0));
    SessionPair pair(length);
    BareCipher cipher;
    Bytes box(length + SecureSession::tagLength, 0x5A);
    runInterleaved(
        state, length, [&] { cipher.sealAndOpen(box); }, [&] { pair.sealAndOpen(); });
}
BENCHMARK(secureInPlaceAgainstBare)->Arg(1400)->Arg(65536)->Arg(1 << 20)->UseManualTime();

}  // namespace
}  // namespace orvel
