// The registrar's dispatcher: one frame from the enrollee in, the answer out, by phase.
#include "registrar/registrar.h"

#include <algorithm>

#include "session.h"

namespace registrar {

using namespace wire;

struct Registrar::Impl : Session {
    using Session::Session;
};

Session::Session(Config c)
    : config(std::move(c)), flavour(flavour_of(config.wps_mode)), next_id(config.eap_identifier) {
    crypto::init();
}

Bytes Session::request(uint8_t op_code, std::span<const uint8_t> message) {
    last_id = next_id++;
    return request_frame(flavour, last_id, op_code, message);
}

namespace {

using Phase = Session::Phase;

Status finish(Session& s, std::vector<Bytes>& out) {
    out.push_back(eap_failure(s.last_id));
    s.phase = Phase::Finished;
    return Status::Finished;
}

Status refused(Session& s, std::string why) {
    s.refuse(std::move(why));
    return Status::Refused;
}

// Sends `message`, or the NACK the configured fault puts in its place.
Status send_message(Session& s, uint8_t type, Phase next, std::vector<Bytes>& out,
                    Bytes (Session::*build)()) {
    if (s.faulty(Fault::Kind::SendNack, type)) {
        out.push_back(s.request(kOpNack, s.build_nack(static_cast<uint16_t>(s.config.fault.value))));
        s.phase = Phase::WaitNackReply;
        return Status::Continue;
    }
    out.push_back(s.request(kOpMsg, (s.*build)()));
    s.phase = next;
    return Status::Continue;
}

void send_fragment(Session& s, std::vector<Bytes>& out) {
    Bytes frame = s.fragments[s.next_fragment++];
    s.last_id = s.next_id++;
    frame[5] = s.last_id;
    out.push_back(std::move(frame));
    s.phase = s.next_fragment < s.fragments.size() ? Phase::WaitFragAck : Phase::WaitDone;
}

Status send_m8(Session& s, std::vector<Bytes>& out) {
    if (s.faulty(Fault::Kind::SendNack, MSG_M8)) return send_message(s, MSG_M8, Phase::WaitDone, out, &Session::build_m8);
    const Bytes body = s.build_m8();
    const bool split = s.config.m8_split_index >= 0 ||
                       (s.config.fragment_size > 0 && body.size() > s.config.fragment_size);
    if (!split) {
        s.outcome.m8_fragments = 1;
        out.push_back(s.request(kOpMsg, body));
        s.phase = Phase::WaitDone;
        return Status::Continue;
    }
    if (!s.fragment_m8(body)) return Status::Refused;
    s.outcome.m8_fragments = s.fragments.size();
    send_fragment(s, out);
    return Status::Continue;
}

Status on_message(Session& s, std::span<const uint8_t> body, std::vector<Bytes>& out) {
    switch (s.phase) {
    case Phase::WaitM1:
        if (!s.accept_m1(body) || !s.prepare_keys()) return Status::Refused;
        if (s.config.fault.kind == Fault::Kind::SendM2D) {
            out.push_back(s.request(kOpMsg, s.build_m2d()));
            s.phase = Phase::WaitM2dAck;
            return Status::Continue;
        }
        return send_message(s, MSG_M2, Phase::WaitM3, out, &Session::build_m2);
    case Phase::WaitM3:
        if (!s.accept_m3(body)) return Status::Refused;
        return send_message(s, MSG_M4, Phase::WaitM5, out, &Session::build_m4);
    case Phase::WaitM5:
        if (!s.accept_m5(body)) return Status::Refused;
        return send_message(s, MSG_M6, Phase::WaitM7, out, &Session::build_m6);
    case Phase::WaitM7:
        if (!s.accept_m7(body)) return Status::Refused;
        return send_m8(s, out);
    default:
        return refused(s, "a message arrived while none was expected");
    }
}

}  // namespace

Registrar::Registrar(Config config) : impl_(new Impl(std::move(config))) {}
Registrar::~Registrar() { delete impl_; }

Status Registrar::handle(std::span<const uint8_t> frame, std::vector<Bytes>& out) {
    Impl& s = *impl_;
    if (s.phase == Phase::Finished) return refused(s, "the exchange is over");
    std::string error;
    const std::optional<Received> r = parse_frame(frame, s.flavour, error);
    if (!r) return refused(s, error);

    if (r->kind == Received::Kind::EapolStart) {
        if (s.phase != Phase::Idle) return refused(s, "EAPOL-Start in the middle of an exchange");
        s.last_id = s.next_id++;
        out.push_back(request_identity(s.last_id));
        s.phase = Phase::WaitIdentity;
        return Status::Continue;
    }
    if (r->id != s.last_id)
        return refused(s, "EAP identifier " + std::to_string(r->id) + " does not answer request " +
                              std::to_string(s.last_id));
    if (r->kind == Received::Kind::Identity) {
        if (s.phase != Phase::WaitIdentity) return refused(s, "Response/Identity while not waiting for one");
        const std::string_view expected(s.flavour.identity);
        if (!std::ranges::equal(r->payload, expected, [](uint8_t a, char b) { return a == static_cast<uint8_t>(b); }))
            return refused(s, "identity is not \"" + std::string(expected) + "\"");
        out.push_back(s.request(kOpStart, {}));
        s.phase = Phase::WaitM1;
        return Status::Continue;
    }

    switch (r->op_code) {
    case kOpMsg:
        return on_message(s, r->payload, out);
    case kOpNack:
        if (!s.accept_nack(r->payload)) return Status::Refused;
        return finish(s, out);
    case kOpAck:
        if (s.phase == Phase::WaitM2dAck) return finish(s, out);
        if (s.phase == Phase::WaitFragAck) {
            send_fragment(s, out);
            return Status::Continue;
        }
        return refused(s, "ACK while nothing awaits one");
    case kOpDone:
        if (s.phase != Phase::WaitDone) return refused(s, "Done before M8");
        if (!s.accept_done(r->payload)) return Status::Refused;
        return finish(s, out);
    default:
        return refused(s, "op-code " + std::to_string(r->op_code) + " from the enrollee");
    }
}

const Outcome& Registrar::outcome() const { return impl_->outcome; }
const std::string& Registrar::last_error() const { return impl_->last_error; }

}  // namespace registrar
