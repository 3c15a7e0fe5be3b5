// The simulator's service logic: key slots, the two commands, and the deliberate faults.
#include <gcrypt.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "chipsim/chipsim.h"
#include "chipsim/server.h"

namespace chipsim {
namespace {

// The WAPI 192-bit curve.
constexpr const char* kP = "BDB6F4FE3E8B1D9E0DA8C0D46F4C318CEFE4AFE3B6B8551F";
constexpr const char* kA = "BB8E5E8FBC115E139FE6A814FE48AAA6F0ADA1AA5DF91985";
constexpr const char* kB = "1854BEBDC31B21B7AEFC80AB0ECD10D5B1B3308E6DBF11C1";
constexpr const char* kG =
    "04"
    "4AD5F7048DE709AD51236DE65E4D4B482C836DC6E4106640"
    "02BB3A02D4AAADACAE24817A4CA3A1B014B5270432DB27D2";
constexpr const char* kN = "BDB6F4FE3E8B1D9E0DA8C0D40FC962195DFAE76F56564677";

constexpr size_t kHalfLen = 24;
constexpr uint32_t kCmdSign = 4;
constexpr uint32_t kCmdExport = 7;
constexpr uint32_t kStatusOk = 0;
constexpr uint32_t kStatusRefused = 1;
constexpr uint32_t kStatusFault = 0x80000001u;
constexpr size_t kOversizedPayload = 200;
constexpr size_t kShortPayload = 10;
constexpr size_t kSignParamLen = 16;
constexpr size_t kSignHeaderLen = 32;

void put_be32(uint8_t* p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v >> 24);
    p[1] = static_cast<uint8_t>(v >> 16);
    p[2] = static_cast<uint8_t>(v >> 8);
    p[3] = static_cast<uint8_t>(v);
}
uint32_t get_be32(const uint8_t* p) {
    return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}

void init_gcrypt() {
    static std::once_flag once;
    std::call_once(once, [] {
        if (!gcry_control(GCRYCTL_INITIALIZATION_FINISHED_P)) {
            gcry_check_version(nullptr);
            gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
            gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
        }
    });
}

gcry_mpi_t hex_mpi(const char* hex) {
    gcry_mpi_t m = nullptr;
    gcry_mpi_scan(&m, GCRYMPI_FMT_HEX, hex, 0, nullptr);
    return m;
}

gcry_mpi_t bytes_mpi(const uint8_t* p, size_t n) {
    gcry_mpi_t m = nullptr;
    gcry_mpi_scan(&m, GCRYMPI_FMT_USG, p, n, nullptr);
    return m;
}

// Writes m as a fixed-width big-endian number.
void mpi_fixed(gcry_mpi_t m, uint8_t* out, size_t width) {
    uint8_t buf[64];
    size_t n = 0;
    gcry_mpi_print(GCRYMPI_FMT_USG, buf, sizeof buf, &n, m);
    std::memset(out, 0, width);
    if (n <= width) std::memcpy(out + (width - n), buf, n);
}

// "(ecc (p)(a)(b)(g)(n)(h)" body shared by every key expression.
struct Curve {
    gcry_mpi_t p = hex_mpi(kP), a = hex_mpi(kA), b = hex_mpi(kB), g = hex_mpi(kG), n = hex_mpi(kN);
    ~Curve() {
        gcry_mpi_release(p);
        gcry_mpi_release(a);
        gcry_mpi_release(b);
        gcry_mpi_release(g);
        gcry_mpi_release(n);
    }
};

const Curve& curve() {
    init_gcrypt();
    static Curve c;
    return c;
}

gcry_mpi_t point_mpi(const std::array<uint8_t, kKeyLen>& xy) {
    uint8_t q[1 + kKeyLen];
    q[0] = 0x04;
    std::memcpy(q + 1, xy.data(), kKeyLen);
    return bytes_mpi(q, sizeof q);
}

// e = SHA-256(data) mod n.
gcry_mpi_t digest_mod_n(const uint8_t* data, size_t len) {
    uint8_t h[32];
    gcry_md_hash_buffer(GCRY_MD_SHA256, h, data, len);
    gcry_mpi_t e = bytes_mpi(h, sizeof h);
    gcry_mpi_mod(e, e, curve().n);
    return e;
}

struct Slot {
    std::array<uint8_t, kHalfLen> d{};
    std::array<uint8_t, kKeyLen> q{};
};

// d = SHA-256(seed || slot) mod (n - 1) + 1; Q = d * G.
Slot make_slot(uint32_t seed, uint32_t index) {
    const Curve& c = curve();
    uint8_t in[8];
    put_be32(in, seed);
    put_be32(in + 4, index);
    uint8_t h[32];
    gcry_md_hash_buffer(GCRY_MD_SHA256, h, in, sizeof in);
    gcry_mpi_t d = bytes_mpi(h, sizeof h);
    gcry_mpi_t n1 = gcry_mpi_new(0);
    gcry_mpi_sub_ui(n1, c.n, 1);
    gcry_mpi_mod(d, d, n1);
    gcry_mpi_add_ui(d, d, 1);

    gcry_sexp_t params = nullptr;
    gcry_sexp_build(&params, nullptr, "(ecc (p %m)(a %m)(b %m)(g %m)(n %m))", c.p, c.a, c.b, c.g,
                    c.n);
    gcry_ctx_t ctx = nullptr;
    gcry_mpi_ec_new(&ctx, params, nullptr);
    gcry_mpi_point_t g = gcry_mpi_ec_get_point("g", ctx, 1);
    gcry_mpi_point_t q = gcry_mpi_point_new(0);
    gcry_mpi_ec_mul(q, d, g, ctx);
    gcry_mpi_t x = gcry_mpi_new(0), y = gcry_mpi_new(0);
    gcry_mpi_ec_get_affine(x, y, q, ctx);

    Slot slot;
    mpi_fixed(d, slot.d.data(), kHalfLen);
    mpi_fixed(x, slot.q.data(), kHalfLen);
    mpi_fixed(y, slot.q.data() + kHalfLen, kHalfLen);
    gcry_mpi_release(x);
    gcry_mpi_release(y);
    gcry_mpi_point_release(q);
    gcry_mpi_point_release(g);
    gcry_ctx_release(ctx);
    gcry_sexp_release(params);
    gcry_mpi_release(n1);
    gcry_mpi_release(d);
    return slot;
}

// ECDSA with a random k, e given raw.
bool sign(const Slot& slot, const uint8_t* data, size_t len, uint8_t* out) {
    const Curve& c = curve();
    gcry_mpi_t d = bytes_mpi(slot.d.data(), slot.d.size());
    gcry_mpi_t q = point_mpi(slot.q);
    gcry_mpi_t e = digest_mod_n(data, len);
    gcry_sexp_t key = nullptr, msg = nullptr, sig = nullptr;
    gcry_sexp_build(&key, nullptr,
                    "(private-key (ecc (p %m)(a %m)(b %m)(g %m)(n %m)(h #01#)(q %m)(d %m)))", c.p,
                    c.a, c.b, c.g, c.n, q, d);
    gcry_sexp_build(&msg, nullptr, "(data (flags raw)(value %m))", e);
    bool ok = gcry_pk_sign(&sig, msg, key) == 0;
    if (ok) {
        gcry_sexp_t r = gcry_sexp_find_token(sig, "r", 0);
        gcry_sexp_t s = gcry_sexp_find_token(sig, "s", 0);
        gcry_mpi_t rm = r ? gcry_sexp_nth_mpi(r, 1, GCRYMPI_FMT_USG) : nullptr;
        gcry_mpi_t sm = s ? gcry_sexp_nth_mpi(s, 1, GCRYMPI_FMT_USG) : nullptr;
        ok = rm != nullptr && sm != nullptr;
        if (ok) {
            mpi_fixed(rm, out, kHalfLen);
            mpi_fixed(sm, out + kHalfLen, kHalfLen);
        }
        gcry_mpi_release(rm);
        gcry_mpi_release(sm);
        gcry_sexp_release(r);
        gcry_sexp_release(s);
    }
    gcry_sexp_release(sig);
    gcry_sexp_release(msg);
    gcry_sexp_release(key);
    gcry_mpi_release(e);
    gcry_mpi_release(q);
    gcry_mpi_release(d);
    return ok;
}

std::vector<uint8_t> reply(uint32_t status, uint32_t length, const uint8_t* payload,
                           size_t payload_len) {
    std::vector<uint8_t> out(8 + payload_len);
    put_be32(out.data(), status);
    put_be32(out.data() + 4, length);
    if (payload_len) std::memcpy(out.data() + 8, payload, payload_len);
    return out;
}

std::vector<uint8_t> default_tail() {
    uint8_t key[kKeyLen];
    std::memset(key, 0x5A, sizeof key);
    return reply(kStatusOk, 8 + kKeyLen, key, sizeof key);
}

}  // namespace

struct Simulator::Impl {
    Options options;
    std::vector<Slot> slots;
    std::unique_ptr<Server> server;
    bool serving = false;

    mutable std::mutex lock;  // guards everything below
    Fault fault = Fault::kNone;
    uint32_t fault_count = 0;
    std::vector<uint8_t> tail = default_tail();
    uint32_t served = 0;
    std::vector<uint8_t> last;
    std::atomic<bool> stalled{false};
    std::atomic<uint32_t> accepted{0};
};

Simulator::Simulator(Options options) : impl_(std::make_unique<Impl>()) {
    impl_->options = std::move(options);
    if (impl_->options.socket_path.empty()) impl_->options.socket_path = default_socket_path();
    for (uint32_t i = 0; i < impl_->options.slots; ++i)
        impl_->slots.push_back(make_slot(impl_->options.seed, i));
}

Simulator::~Simulator() {
    stop();
}

bool Simulator::start() {
    if (impl_->serving) return true;
    impl_->server = make_server(*this, impl_->options.socket_path);
    if (!impl_->server || !impl_->server->start()) {
        impl_->server.reset();
        return false;
    }
    impl_->serving = true;
    return true;
}

void Simulator::stop() {
    if (!impl_->serving) return;
    impl_->server->stop();
    impl_->server.reset();
    impl_->serving = false;
}

void Simulator::withdraw() {
    if (impl_->serving) impl_->server->withdraw();
}

void Simulator::set_stalled(bool stalled) {
    impl_->stalled.store(stalled);
    if (impl_->serving) impl_->server->on_stall(stalled);
}

bool Simulator::stalled() const {
    return impl_->stalled.load();
}

bool Simulator::serving() const {
    return impl_->serving;
}
const std::string& Simulator::socket_path() const {
    return impl_->options.socket_path;
}

std::array<uint8_t, kKeyLen> Simulator::public_key(uint32_t slot) const {
    if (slot >= impl_->slots.size()) return {};
    return impl_->slots[slot].q;
}

void Simulator::set_fault(Fault fault, uint32_t count) {
    std::lock_guard<std::mutex> guard(impl_->lock);
    impl_->fault = fault;
    impl_->fault_count = count;
}

void Simulator::set_long_reply_tail(std::vector<uint8_t> tail) {
    std::lock_guard<std::mutex> guard(impl_->lock);
    impl_->tail = std::move(tail);
}

std::vector<uint8_t> Simulator::long_reply_tail() const {
    std::lock_guard<std::mutex> guard(impl_->lock);
    return impl_->tail;
}

uint32_t Simulator::requests_served() const {
    std::lock_guard<std::mutex> guard(impl_->lock);
    return impl_->served;
}

uint32_t Simulator::connections_accepted() const {
    return impl_->accepted.load();
}

void Simulator::note_connection() {
    impl_->accepted.fetch_add(1);
}

std::vector<uint8_t> Simulator::last_request() const {
    std::lock_guard<std::mutex> guard(impl_->lock);
    return impl_->last;
}

std::vector<uint8_t> Simulator::answer(const uint8_t* request, size_t len, bool* vanish) {
    Fault fault = Fault::kNone;
    std::vector<uint8_t> tail;
    {
        std::lock_guard<std::mutex> guard(impl_->lock);
        ++impl_->served;
        impl_->last.assign(request, request + len);
        if (impl_->fault_count != 0) {
            fault = impl_->fault;
            if (--impl_->fault_count == 0) impl_->fault = Fault::kNone;
        }
        tail = impl_->tail;
    }
    *vanish = fault == Fault::kVanish;
    if (*vanish || fault == Fault::kSilent) return {};

    // The normal answer first; the faults bend it.
    uint32_t command = len >= 4 ? get_be32(request) : 0;
    uint32_t slot = len >= 12 ? get_be32(request + 8) : ~0u;
    bool known = slot < impl_->slots.size();
    uint8_t payload[kOversizedPayload];
    std::memset(payload, 0xC3, sizeof payload);
    uint32_t status = kStatusOk;
    bool whole_length = false;  // command 7: L counts the header too
    if (command == kCmdExport && len == 12 && known) {
        std::memcpy(payload, impl_->slots[slot].q.data(), kKeyLen);
        whole_length = true;
    } else if (command == kCmdSign && len >= kSignHeaderLen && known &&
               get_be32(request + 4) == len - 8 &&
               get_be32(request + 8 + 4 + kSignParamLen) == len - kSignHeaderLen) {
        if (!sign(impl_->slots[slot], request + kSignHeaderLen, len - kSignHeaderLen, payload))
            status = kStatusRefused;
    } else {
        return reply(kStatusRefused, command == kCmdExport ? 8 : 0, nullptr, 0);
    }

    size_t payload_len = kKeyLen;
    size_t sent_len = kKeyLen;
    if (fault == Fault::kBadStatus) status = kStatusFault;
    if (fault == Fault::kOversizedLength) payload_len = sent_len = kOversizedPayload;
    if (fault == Fault::kShortReply) sent_len = kShortPayload;
    uint32_t length = static_cast<uint32_t>(payload_len + (whole_length ? 8 : 0));
    std::vector<uint8_t> out = reply(status, length, payload, sent_len);
    if (fault == Fault::kLongReply) {
        out.resize(kPipeReadLen, 0);
        out.insert(out.end(), tail.begin(), tail.end());
    }
    return out;
}

bool Simulator::verify(const std::array<uint8_t, kKeyLen>& public_key, const uint8_t* data,
                       size_t len, const uint8_t* signature) {
    const Curve& c = curve();
    gcry_mpi_t q = point_mpi(public_key);
    gcry_mpi_t e = digest_mod_n(data, len);
    gcry_mpi_t r = bytes_mpi(signature, kHalfLen);
    gcry_mpi_t s = bytes_mpi(signature + kHalfLen, kHalfLen);
    gcry_sexp_t key = nullptr, msg = nullptr, sig = nullptr;
    gcry_sexp_build(&key, nullptr,
                    "(public-key (ecc (p %m)(a %m)(b %m)(g %m)(n %m)(h #01#)(q %m)))", c.p, c.a,
                    c.b, c.g, c.n, q);
    gcry_sexp_build(&msg, nullptr, "(data (flags raw)(value %m))", e);
    gcry_sexp_build(&sig, nullptr, "(sig-val (ecdsa (r %m)(s %m)))", r, s);
    bool ok = gcry_pk_verify(sig, msg, key) == 0;
    gcry_sexp_release(sig);
    gcry_sexp_release(msg);
    gcry_sexp_release(key);
    gcry_mpi_release(s);
    gcry_mpi_release(r);
    gcry_mpi_release(e);
    gcry_mpi_release(q);
    return ok;
}

std::string default_socket_path() {
    const char* env = std::getenv("WAPIWPS_SECURECHIP_SOCKET");
    return (env != nullptr && env[0] != '\0') ? env : "/run/wapiwps/securechip.sock";
}

}  // namespace chipsim
