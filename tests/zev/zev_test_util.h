// Shared helpers of the ZEV stand-in tests: curves from sm2_kex.json, hex fields, and a
// test-side curve over libgcrypt that does not go through the stand-in.
#pragma once

#include <gcrypt.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "zev.h"
#include "common/vectors.h"

namespace zevtest {

using testjson::from_hex;
using testjson::JsonValue;
using testjson::load_vectors;

constexpr char kRecommendedCurve[] = "sm2p256v1 (GB/T 32918.5 recommended curve)";
constexpr char kExampleCurve[] = "SM2 standard example Fp-256 curve (GM/T 0003 Annex A)";
constexpr size_t kCoordLen = 32;

// The parameter block of a curve named in sm2_kex.json's "curves" (count set to 6).
std::optional<ZEV_SessionParams> curve_params(const std::string& name);
// A session over that curve; nullptr (and a test failure) when it cannot be opened.
void* open_curve(const std::string& name);

// The string member key of v decoded from hex into exactly len bytes at dst.
bool hex_field(const JsonValue& v, const char* key, uint8_t* dst, size_t len);
// The string member key of v decoded from hex; empty on a missing or bad field.
std::vector<uint8_t> hex_bytes(const JsonValue& v, const char* key);
std::string to_hex(const uint8_t* p, size_t len);

// Curve arithmetic for the tests, straight over libgcrypt.
class RefCurve {
  public:
    explicit RefCurve(const ZEV_SessionParams& params);
    ~RefCurve();
    RefCurve(const RefCurve&) = delete;
    RefCurve& operator=(const RefCurve&) = delete;
    bool ok() const { return ctx_ != nullptr; }

    // [k]P for a 32-byte big-endian k (any value; reduced by libgcrypt's arithmetic), P given by
    // its coordinates or G when px is null. False when the result is the point at infinity.
    bool mul(const uint8_t* k, const uint8_t* px, const uint8_t* py, uint8_t* x, uint8_t* y) const;
    bool on_curve(const uint8_t* x, const uint8_t* y) const;
    // (n - v) mod n for a 32-byte big-endian v.
    void negate_scalar(const uint8_t* v, uint8_t* out) const;
    const ZEV_SessionParams& params() const { return params_; }

  private:
    ZEV_SessionParams params_;
    gcry_ctx_t ctx_ = nullptr;
    gcry_mpi_t n_ = nullptr;
};

// x̄ = 2^127 + (x mod 2^127) of a 32-byte x, for 256-bit orders.
void x_bar(const uint8_t* x, uint8_t* out);

}  // namespace zevtest
