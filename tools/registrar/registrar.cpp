// The registrar's frame dispatcher: one call per frame from the enrollee.
#include "registrar/registrar.h"

namespace registrar {

struct Registrar::Impl {
    Config config;
    Outcome outcome;
    std::string last_error;
};

Registrar::Registrar(Config config) : impl_(new Impl{std::move(config), {}, {}}) {}
Registrar::~Registrar() { delete impl_; }

Status Registrar::handle(std::span<const uint8_t>, std::vector<Bytes>&) {
    impl_->last_error = "not implemented yet";
    return Status::Refused;
}

const Outcome& Registrar::outcome() const { return impl_->outcome; }
const std::string& Registrar::last_error() const { return impl_->last_error; }

}  // namespace registrar
