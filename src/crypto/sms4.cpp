// SMS4 (SM4) block cipher, its key schedule and output-feedback mode: our own code, no library.
#include <array>
#include <cstring>

#include "common/bytes.h"
#include "crypto/crypto.h"

namespace {

constexpr size_t kBlockLen = 16;
constexpr size_t kKeyLen = 16;
constexpr int kRounds = 32;

constexpr uint8_t kSbox[256] = {
    0xD6, 0x90, 0xE9, 0xFE, 0xCC, 0xE1, 0x3D, 0xB7, 0x16, 0xB6, 0x14, 0xC2, 0x28, 0xFB, 0x2C, 0x05,
    0x2B, 0x67, 0x9A, 0x76, 0x2A, 0xBE, 0x04, 0xC3, 0xAA, 0x44, 0x13, 0x26, 0x49, 0x86, 0x06, 0x99,
    0x9C, 0x42, 0x50, 0xF4, 0x91, 0xEF, 0x98, 0x7A, 0x33, 0x54, 0x0B, 0x43, 0xED, 0xCF, 0xAC, 0x62,
    0xE4, 0xB3, 0x1C, 0xA9, 0xC9, 0x08, 0xE8, 0x95, 0x80, 0xDF, 0x94, 0xFA, 0x75, 0x8F, 0x3F, 0xA6,
    0x47, 0x07, 0xA7, 0xFC, 0xF3, 0x73, 0x17, 0xBA, 0x83, 0x59, 0x3C, 0x19, 0xE6, 0x85, 0x4F, 0xA8,
    0x68, 0x6B, 0x81, 0xB2, 0x71, 0x64, 0xDA, 0x8B, 0xF8, 0xEB, 0x0F, 0x4B, 0x70, 0x56, 0x9D, 0x35,
    0x1E, 0x24, 0x0E, 0x5E, 0x63, 0x58, 0xD1, 0xA2, 0x25, 0x22, 0x7C, 0x3B, 0x01, 0x21, 0x78, 0x87,
    0xD4, 0x00, 0x46, 0x57, 0x9F, 0xD3, 0x27, 0x52, 0x4C, 0x36, 0x02, 0xE7, 0xA0, 0xC4, 0xC8, 0x9E,
    0xEA, 0xBF, 0x8A, 0xD2, 0x40, 0xC7, 0x38, 0xB5, 0xA3, 0xF7, 0xF2, 0xCE, 0xF9, 0x61, 0x15, 0xA1,
    0xE0, 0xAE, 0x5D, 0xA4, 0x9B, 0x34, 0x1A, 0x55, 0xAD, 0x93, 0x32, 0x30, 0xF5, 0x8C, 0xB1, 0xE3,
    0x1D, 0xF6, 0xE2, 0x2E, 0x82, 0x66, 0xCA, 0x60, 0xC0, 0x29, 0x23, 0xAB, 0x0D, 0x53, 0x4E, 0x6F,
    0xD5, 0xDB, 0x37, 0x45, 0xDE, 0xFD, 0x8E, 0x2F, 0x03, 0xFF, 0x6A, 0x72, 0x6D, 0x6C, 0x5B, 0x51,
    0x8D, 0x1B, 0xAF, 0x92, 0xBB, 0xDD, 0xBC, 0x7F, 0x11, 0xD9, 0x5C, 0x41, 0x1F, 0x10, 0x5A, 0xD8,
    0x0A, 0xC1, 0x31, 0x88, 0xA5, 0xCD, 0x7B, 0xBD, 0x2D, 0x74, 0xD0, 0x12, 0xB8, 0xE5, 0xB4, 0xB0,
    0x89, 0x69, 0x97, 0x4A, 0x0C, 0x96, 0x77, 0x7E, 0x65, 0xB9, 0xF1, 0x09, 0xC5, 0x6E, 0xC6, 0x84,
    0x18, 0xF0, 0x7D, 0xEC, 0x3A, 0xDC, 0x4D, 0x20, 0x79, 0xEE, 0x5F, 0x3E, 0xD7, 0xCB, 0x39, 0x48,
};

constexpr uint32_t kFk[4] = {0xA3B1BAC6, 0x56AA3350, 0x677D9197, 0xB27022DC};

// CK word i = bytes (28i), (28i+7), (28i+14), (28i+21), each mod 256.
constexpr std::array<uint32_t, kRounds> make_ck() {
    std::array<uint32_t, kRounds> ck{};
    for (uint32_t i = 0; i < kRounds; ++i) {
        uint32_t word = 0;
        for (uint32_t j = 0; j < 4; ++j) word = (word << 8) | ((28 * i + 7 * j) & 0xFF);
        ck[i] = word;
    }
    return ck;
}
constexpr std::array<uint32_t, kRounds> kCk = make_ck();

// The S-box byte placed at byte position `pos` (0 = least significant) of a word: the key
// schedule applies the S-box to all four bytes with four lookups and XORs, then L'.
using PositionTable = std::array<uint32_t, 256>;
constexpr PositionTable make_position_table(int pos) {
    PositionTable t{};
    for (int i = 0; i < 256; ++i) t[i] = static_cast<uint32_t>(kSbox[i]) << (8 * pos);
    return t;
}
constexpr PositionTable kSboxPos0 = make_position_table(0);
constexpr PositionTable kSboxPos1 = make_position_table(1);
constexpr PositionTable kSboxPos2 = make_position_table(2);
constexpr PositionTable kSboxPos3 = make_position_table(3);

constexpr uint32_t rotl(uint32_t x, int n) {
    return (x << n) | (x >> (32 - n));
}

constexpr uint32_t diffusion_l(uint32_t b) {
    return b ^ rotl(b, 2) ^ rotl(b, 10) ^ rotl(b, 18) ^ rotl(b, 24);
}

// The round's position tables with the diffusion L folded in: L is linear over XOR, so
// L(tau(x)) is the XOR of L applied to each placed S-box byte. A round is then four lookups and
// three XORs, with no rotations on the block's critical path (OFB cannot run blocks in parallel,
// so one block's latency is the mode's throughput).
constexpr PositionTable make_round_table(int pos) {
    PositionTable t{};
    for (int i = 0; i < 256; ++i) t[i] = diffusion_l(static_cast<uint32_t>(kSbox[i]) << (8 * pos));
    return t;
}
constexpr PositionTable kRound0 = make_round_table(0);
constexpr PositionTable kRound1 = make_round_table(1);
constexpr PositionTable kRound2 = make_round_table(2);
constexpr PositionTable kRound3 = make_round_table(3);

// tau: the S-box on each byte of the word.
inline uint32_t tau(uint32_t x) {
    return kSboxPos3[x >> 24] ^ kSboxPos2[(x >> 16) & 0xFF] ^ kSboxPos1[(x >> 8) & 0xFF] ^
           kSboxPos0[x & 0xFF];
}

// T: the round transformation (tau, then the linear diffusion L), through the folded tables.
inline uint32_t round_t(uint32_t x) {
    return kRound3[x >> 24] ^ kRound2[(x >> 16) & 0xFF] ^ kRound1[(x >> 8) & 0xFF] ^
           kRound0[x & 0xFF];
}

// T': the key-schedule transformation (tau, then L').
inline uint32_t key_t(uint32_t x) {
    const uint32_t b = tau(x);
    return b ^ rotl(b, 13) ^ rotl(b, 23);
}

// The 32 rounds on the block as four words X0..X3; on return w holds X35, X34, X33, X32.
// Each round's input XORs the two older words and the round key first, so only the newest word
// joins it on the critical path.
inline void encrypt_words(const uint32_t* rk, uint32_t w[4]) {
    uint32_t x0 = w[0], x1 = w[1], x2 = w[2], x3 = w[3];
    // Eight passes of four rounds; each pass rotates the roles of the four words back into place.
    for (int i = 0; i < kRounds; i += 4) {
        x0 ^= round_t((x1 ^ x2 ^ rk[i]) ^ x3);
        x1 ^= round_t((x2 ^ x3 ^ rk[i + 1]) ^ x0);
        x2 ^= round_t((x3 ^ x0 ^ rk[i + 2]) ^ x1);
        x3 ^= round_t((x0 ^ x1 ^ rk[i + 3]) ^ x2);
    }
    w[0] = x3;
    w[1] = x2;
    w[2] = x1;
    w[3] = x0;
}

constexpr bool sbox_is_permutation() {
    bool seen[256] = {};
    for (uint8_t v : kSbox) {
        if (seen[v]) return false;
        seen[v] = true;
    }
    return true;
}
static_assert(sbox_is_permutation(), "the S-box must be a permutation");
static_assert(kCk[0] == 0x00070E15 && kCk[31] == 0x646B7279, "CK rule");
static_assert(sizeof(kSboxPos0) == 1024 && sizeof(kRound0) == 1024, "each table is 1024 bytes");

}  // namespace

int32_t Sms4KeySchedule(Sms4Schedule* schedule, const uint8_t* key, size_t keyLength) {
    if (schedule == nullptr || key == nullptr || keyLength != kKeyLen) return -1;
    uint32_t k[4];
    for (int i = 0; i < 4; ++i) k[i] = get_be32(key + 4 * i) ^ kFk[i];
    for (int i = 0; i < kRounds; ++i) {
        const uint32_t next = k[0] ^ key_t(k[1] ^ k[2] ^ k[3] ^ kCk[i]);
        schedule->rk[i] = next;
        k[0] = k[1];
        k[1] = k[2];
        k[2] = k[3];
        k[3] = next;
    }
    for (int i = 0; i < kRounds; ++i) schedule->rk_rev[i] = schedule->rk[kRounds - 1 - i];
    schedule->key_length = kKeyLen;
    secure_wipe(k, sizeof(k));
    return 0;
}

void Sms4EncryptBlock(const Sms4Schedule& schedule, const uint8_t* input, uint8_t* output) {
    uint32_t w[4];
    for (int i = 0; i < 4; ++i) w[i] = get_be32(input + 4 * i);
    encrypt_words(schedule.rk, w);
    for (int i = 0; i < 4; ++i) put_be32(output + 4 * i, w[i]);
}

int32_t Sms4EncryptBlockChecked(const Sms4Schedule* schedule, const uint8_t* input,
                                uint8_t* output) {
    if (schedule == nullptr || input == nullptr || output == nullptr) return -1;
    Sms4EncryptBlock(*schedule, input, output);
    return 0;
}

int32_t Sms4Ofb(const uint8_t* iv, const uint8_t* input, int32_t length, const uint8_t* key,
                uint8_t* output) {
    if (iv == nullptr || input == nullptr || key == nullptr || output == nullptr || length <= 0)
        return -1;
    Sms4Schedule schedule;
    Sms4KeySchedule(&schedule, key, kKeyLen);
    // The keystream stays in words between blocks (the output words are the next input); only
    // the XOR with the data goes through bytes. Input and output may be the same area.
    uint32_t w[4];
    for (int i = 0; i < 4; ++i) w[i] = get_be32(iv + 4 * i);
    uint8_t block[kBlockLen];
    size_t done = 0;
    const size_t total = static_cast<size_t>(length);
    while (total - done >= kBlockLen) {
        encrypt_words(schedule.rk, w);
        for (int i = 0; i < 4; ++i) put_be32(block + 4 * i, w[i]);
        uint64_t data[2], stream[2];
        std::memcpy(data, input + done, kBlockLen);
        std::memcpy(stream, block, kBlockLen);
        data[0] ^= stream[0];
        data[1] ^= stream[1];
        std::memcpy(output + done, data, kBlockLen);
        done += kBlockLen;
    }
    if (done < total) {
        encrypt_words(schedule.rk, w);
        for (int i = 0; i < 4; ++i) put_be32(block + 4 * i, w[i]);
        for (size_t i = 0; done + i < total; ++i)
            output[done + i] = static_cast<uint8_t>(input[done + i] ^ block[i]);
    }
    secure_wipe(&schedule, sizeof(schedule));
    secure_wipe(w, sizeof(w));
    secure_wipe(block, sizeof(block));
    return 0;
}
