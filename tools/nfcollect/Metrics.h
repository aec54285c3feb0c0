#pragma once

#include <prometheus/counter.h>
#include <prometheus/exposer.h>
#include <prometheus/family.h>
#include <prometheus/gauge.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "Store.h"
#include "util/Types.h"

// The Prometheus endpoint of --metrics [ADDRESS:]PORT: /metrics in the text format, served by
// prometheus-cpp's pull exposer on threads of its own. Series that grow with every datagram are counted
// by the workers through a cache of their own (a hash lookup and an atomic add per datagram); figures
// the collector keeps anyway (kernel drops, the stores) are brought up to date by the control thread
// once a second. At most kMaxExporters exporters get a label of their own; the rest count as "other".
class CMetrics {
public:
    static constexpr size_t kMaxExporters = 1024;

    // Serves the endpoint; null, with the reason, when the address cannot be used.
    static std::unique_ptr<CMetrics> Create(const std::string& address, std::string& error);

    // The port the endpoint listens on (the one the system chose for port 0).
    int GetPort() const;

    // A worker's counters; used only on that worker's thread.
    class CWorkerCounters {
    public:
        explicit CWorkerCounters(CMetrics& metrics) : m_metrics(metrics) {}
        void Packet(const CString& exporter, const CString& protocol, uint64_t records);
        void DecodeError(const CString& exporter);
        void Ignored(const CString& exporter);
        void Malformed(const CString& exporter);
        void SequenceGap(const CString& exporter, uint64_t missing);

    private:
        struct Exporter {
            std::map<CString, std::pair<prometheus::Counter*, prometheus::Counter*>> byProtocol;
            prometheus::Counter* decodeErrors = nullptr;
            prometheus::Counter* ignored = nullptr;
            prometheus::Counter* malformed = nullptr;
            prometheus::Counter* sequenceGaps = nullptr;
            std::string label;
        };
        Exporter& Find(const CString& exporter);

        CMetrics& m_metrics;
        std::unordered_map<CString, Exporter> m_exporters;
    };
    std::unique_ptr<CWorkerCounters> NewWorkerCounters() { return std::make_unique<CWorkerCounters>(*this); }

    // Control thread, once a second: the kernel's drops and the refused datagrams of every worker together.
    void SetReceiveTotals(uint64_t lost, uint64_t refused);
    void SetStore(const std::string& store, const CStore::Snapshot& snapshot);
    void SetTemplates(const std::string& exporter, uint64_t templates);
    // Any thread: how long one write of a store took.
    void ObserveWrite(const std::string& store, double seconds);

private:
    CMetrics() = default;
    // The label of an exporter: itself for the first kMaxExporters, then "other".
    std::string Label(const CString& exporter);
    // Brings a counter up to a total kept elsewhere.
    static void Advance(prometheus::Counter& counter, uint64_t total);

    struct StoreSeries {
        prometheus::Gauge* queue;
        prometheus::Counter* stored;
        prometheus::Counter* spilled;
        prometheus::Counter* retries;
        prometheus::Gauge* healthy;
        prometheus::Histogram* writeSeconds;
    };
    StoreSeries& Store(const std::string& store);

    std::shared_ptr<prometheus::Registry> m_registry = std::make_shared<prometheus::Registry>();
    std::unique_ptr<prometheus::Exposer> m_exposer;

    prometheus::Family<prometheus::Counter>* m_datagrams = nullptr;
    prometheus::Family<prometheus::Counter>* m_records = nullptr;
    prometheus::Family<prometheus::Counter>* m_decodeErrors = nullptr;
    prometheus::Family<prometheus::Counter>* m_ignored = nullptr;
    prometheus::Family<prometheus::Counter>* m_malformed = nullptr;
    prometheus::Family<prometheus::Counter>* m_sequenceGaps = nullptr;
    prometheus::Family<prometheus::Gauge>* m_templates = nullptr;
    prometheus::Counter* m_lost = nullptr;
    prometheus::Counter* m_refused = nullptr;
    prometheus::Family<prometheus::Gauge>* m_storeQueue = nullptr;
    prometheus::Family<prometheus::Counter>* m_storeStored = nullptr;
    prometheus::Family<prometheus::Counter>* m_storeSpilled = nullptr;
    prometheus::Family<prometheus::Counter>* m_storeRetries = nullptr;
    prometheus::Family<prometheus::Gauge>* m_storeHealthy = nullptr;
    prometheus::Family<prometheus::Histogram>* m_storeWriteSeconds = nullptr;

    std::mutex m_lock; // exporter labels and store series
    std::unordered_set<std::string> m_exporterLabels;
    std::map<std::string, StoreSeries> m_stores;
};
