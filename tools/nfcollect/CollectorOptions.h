#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <string>
#include <vector>

#include <asio/ip/address.hpp>

#include "packet/DecodeOptions.h"
#include "session/AddressPrefix.h"

// Everything nfcollect can be told, on the command line or in a configuration file.
struct CollectorOptions {
    int port = 2055;
    std::vector<std::string> listen;
    std::vector<std::string> allow;
    int workers = 1;
    int receiveBuffer = 0;
    int coalesceUsecs = 0;
    std::string format = "text";
    uint64_t count = 0;
    double duration = 0;
    bool trace = false;
    std::string traceDir;
    std::string dsn;
    std::string db;
    std::string flowsDsn;
    std::string flowsDb;
    bool quiet = false;
    double statsInterval = 60;
    uint64_t maxQueue = 1000000;
    std::string spillDir;
    bool sharedDb = false;
    bool pgCopy = false;
    bool ipfix = false;
    std::string templateScope = "global";
    uint32_t maxTemplates = 0;
    bool sflowExact = false;
    bool rfc = false;
    std::string metrics;
    bool dumpConfig = false;
};

// The decoding options the flags ask for (--rfc sets every one of them).
CDecodeOptions DecodeOptionsOf(const CollectorOptions& options);

// The --listen addresses and --allow prefixes, parsed (AddCollectorOptions has checked them).
std::vector<asio::ip::address> ListenAddressesOf(const CollectorOptions& options);
std::vector<CAddressPrefix> AllowListOf(const CollectorOptions& options);

// Declares every option on app, with --config FILE (TOML or INI; the command line overrides it) and
// --dump-config (prints the effective configuration, with every option described, and exits).
void AddCollectorOptions(CLI::App& app, CollectorOptions& options);
