#include "Metrics.h"

#include <exception>

#include "util/TextConvert.h"

std::unique_ptr<CMetrics> CMetrics::Create(const std::string& address, std::string& error) {
    std::unique_ptr<CMetrics> metrics(new CMetrics());
    try {
        // One thread serves the scrapes: a scrape a second or so needs no more.
        metrics->m_exposer = std::make_unique<prometheus::Exposer>(address, 1);
    } catch (const std::exception& e) {
        error = e.what();
        return nullptr;
    }
    prometheus::Registry& r = *metrics->m_registry;
    using prometheus::BuildCounter;
    using prometheus::BuildGauge;
    using prometheus::BuildHistogram;
    metrics->m_datagrams = &BuildCounter()
                                .Name("nfcollect_datagrams_total")
                                .Help("Datagrams decoded, per exporter address and protocol")
                                .Register(r);
    metrics->m_records =
        &BuildCounter()
             .Name("nfcollect_records_total")
             .Help("Flow records (NetFlow, IPFIX) or samples (sFlow) decoded, per exporter and "
                   "protocol")
             .Register(r);
    metrics->m_decodeErrors = &BuildCounter()
                                   .Name("nfcollect_decode_errors_total")
                                   .Help("Datagrams whose decoding failed, per exporter")
                                   .Register(r);
    metrics->m_ignored = &BuildCounter()
                              .Name("nfcollect_ignored_total")
                              .Help("Datagrams of an unknown version or too short to have one, per exporter")
                              .Register(r);
    metrics->m_malformed =
        &BuildCounter()
             .Name("nfcollect_malformed_total")
             .Help("Datagrams dropped because they ended where more was announced, per exporter")
             .Register(r);
    metrics->m_sequenceGaps =
        &BuildCounter()
             .Name("nfcollect_sequence_gaps_total")
             .Help("Datagrams missing by the headers' sequence numbers (lost before they "
                   "reached the collector), per exporter")
             .Register(r);
    metrics->m_templates = &BuildGauge()
                                .Name("nfcollect_templates")
                                .Help("NetFlow v9 and IPFIX templates held, per exporter")
                                .Register(r);
    metrics->m_lost = &BuildCounter()
                           .Name("nfcollect_receive_buffer_lost_total")
                           .Help("Datagrams the kernel dropped because the receive buffer was full")
                           .Register(r)
                           .Add({});
    metrics->m_refused = &BuildCounter()
                              .Name("nfcollect_refused_total")
                              .Help("Datagrams from senders outside the allowlist, never decoded")
                              .Register(r)
                              .Add({});
    metrics->m_storeQueue = &BuildGauge()
                                 .Name("nfcollect_store_queue_records")
                                 .Help("Records waiting for the store's database")
                                 .Register(r);
    metrics->m_storeStored = &BuildCounter()
                                  .Name("nfcollect_stored_records_total")
                                  .Help("Records the store has written")
                                  .Register(r);
    metrics->m_storeSpilled =
        &BuildCounter()
             .Name("nfcollect_spilled_datagrams_total")
             .Help("Datagrams written to the store's spill directory instead of its queue")
             .Register(r);
    metrics->m_storeRetries = &BuildCounter()
                                   .Name("nfcollect_store_retries_total")
                                   .Help("Times the store's database was opened again after a failure")
                                   .Register(r);
    metrics->m_storeHealthy = &BuildGauge()
                                   .Name("nfcollect_store_healthy")
                                   .Help("1 while the store's database takes writes, else 0")
                                   .Register(r);
    metrics->m_storeWriteSeconds = &BuildHistogram()
                                        .Name("nfcollect_store_write_seconds")
                                        .Help("Duration of one write (one transaction) of the store")
                                        .Register(r);
    metrics->m_exposer->RegisterCollectable(metrics->m_registry);
    return metrics;
}

int CMetrics::GetPort() const {
    const std::vector<int> ports = m_exposer->GetListeningPorts();
    return ports.empty() ? 0 : ports.front();
}

std::string CMetrics::Label(const CString& exporter) {
    std::string label = tpnf::ToUtf8(exporter);
    std::lock_guard<std::mutex> lock(m_lock);
    if (m_exporterLabels.count(label) > 0)
        return label;
    if (m_exporterLabels.size() >= kMaxExporters)
        return "other";
    m_exporterLabels.insert(label);
    return label;
}

void CMetrics::Advance(prometheus::Counter& counter, uint64_t total) {
    const double now = counter.Value();
    if (static_cast<double>(total) > now)
        counter.Increment(static_cast<double>(total) - now);
}

CMetrics::CWorkerCounters::Exporter& CMetrics::CWorkerCounters::Find(const CString& exporter) {
    auto found = m_exporters.find(exporter);
    if (found != m_exporters.end())
        return found->second;
    Exporter& entry = m_exporters[exporter];
    entry.label = m_metrics.Label(exporter);
    const prometheus::Labels labels{{"exporter", entry.label}};
    entry.decodeErrors = &m_metrics.m_decodeErrors->Add(labels);
    entry.ignored = &m_metrics.m_ignored->Add(labels);
    entry.malformed = &m_metrics.m_malformed->Add(labels);
    entry.sequenceGaps = &m_metrics.m_sequenceGaps->Add(labels);
    return entry;
}

void CMetrics::CWorkerCounters::Packet(const CString& exporter, const CString& protocol, uint64_t records) {
    Exporter& entry = Find(exporter);
    auto found = entry.byProtocol.find(protocol);
    if (found == entry.byProtocol.end()) {
        const prometheus::Labels labels{{"exporter", entry.label}, {"protocol", tpnf::ToUtf8(protocol)}};
        found = entry.byProtocol
                    .emplace(protocol, std::make_pair(&m_metrics.m_datagrams->Add(labels),
                                                      &m_metrics.m_records->Add(labels)))
                    .first;
    }
    found->second.first->Increment();
    found->second.second->Increment(static_cast<double>(records));
}

void CMetrics::CWorkerCounters::DecodeError(const CString& exporter) {
    Find(exporter).decodeErrors->Increment();
}

void CMetrics::CWorkerCounters::Ignored(const CString& exporter) {
    Find(exporter).ignored->Increment();
}

void CMetrics::CWorkerCounters::Malformed(const CString& exporter) {
    Find(exporter).malformed->Increment();
}

void CMetrics::CWorkerCounters::SequenceGap(const CString& exporter, uint64_t missing) {
    Find(exporter).sequenceGaps->Increment(static_cast<double>(missing));
}

void CMetrics::SetReceiveTotals(uint64_t lost, uint64_t refused) {
    Advance(*m_lost, lost);
    Advance(*m_refused, refused);
}

CMetrics::StoreSeries& CMetrics::Store(const std::string& store) {
    std::lock_guard<std::mutex> lock(m_lock);
    auto found = m_stores.find(store);
    if (found != m_stores.end())
        return found->second;
    const prometheus::Labels labels{{"store", store}};
    StoreSeries series{
        &m_storeQueue->Add(labels),
        &m_storeStored->Add(labels),
        &m_storeSpilled->Add(labels),
        &m_storeRetries->Add(labels),
        &m_storeHealthy->Add(labels),
        &m_storeWriteSeconds->Add(labels, prometheus::Histogram::BucketBoundaries{0.001, 0.005, 0.01, 0.05,
                                                                                  0.1, 0.5, 1, 5, 10, 30})};
    return m_stores.emplace(store, series).first->second;
}

void CMetrics::SetStore(const std::string& store, const CStore::Snapshot& snapshot) {
    StoreSeries& series = Store(store);
    series.queue->Set(static_cast<double>(snapshot.waitingRecords));
    Advance(*series.stored, snapshot.storedRecords);
    Advance(*series.spilled, snapshot.spilled);
    Advance(*series.retries, snapshot.retries);
    series.healthy->Set(snapshot.state == CStore::EState::Healthy ? 1 : 0);
}

void CMetrics::SetTemplates(const std::string& exporter, uint64_t templates) {
    m_templates->Add({{"exporter", Label(tpnf::FromUtf8(exporter))}}).Set(static_cast<double>(templates));
}

void CMetrics::ObserveWrite(const std::string& store, double seconds) {
    Store(store).writeSeconds->Observe(seconds);
}
