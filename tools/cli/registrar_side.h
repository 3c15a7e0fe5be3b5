// The reference registrar as the host runs it: its configuration from the command line.
#pragma once

#include "cli.h"
#include "registrar/registrar.h"

namespace cli {

// The demo certificate list the registrar hands out in certificate mode (opaque to the library).
constexpr char kDemoCertificateList[] =
    "-----BEGIN DEMO CERTIFICATE----- wapiwps reference registrar";

registrar::Config registrar_config(const Options& opt, const Mac& enrollee);

// Prints what the registrar learnt from the enrollee.
void print_registrar_outcome(const registrar::Outcome& outcome);

}  // namespace cli
