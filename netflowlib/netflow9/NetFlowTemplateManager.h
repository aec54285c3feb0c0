#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <shared_mutex>
#include <unordered_map>
#include <vector>

#include "netflow9/NetFlowSetTemplate.h"
#include "packet/DecodeOptions.h"

// The wire format a scoped template belongs to: a v9 and an IPFIX template of one exporter never meet.
enum class ETemplateProtocol : uint8_t {
    NetFlowV9 = 9,
    IPFIX = 10,
};

// Whose templates a scoped entry holds: one exporter (its address; the port is not part of it), one
// v9 source id or IPFIX observation domain, one wire format.
struct CTemplateScope {
    CExporterAddress exporter;
    uint32_t domain = 0;
    ETemplateProtocol protocol = ETemplateProtocol::NetFlowV9;
};

// What the store holds, for metrics: a copy taken under the store's lock.
struct CTemplateStoreSnapshot {
    struct Exporter {
        CExporterAddress address; // port 0
        size_t templates = 0;     // held now, every domain and wire format together
        uint64_t dropped = 0;     // removed by the bound since the exporter's first template
    };
    size_t globalTemplates = 0;      // the v9 global scope
    size_t scopedTemplates = 0;      // every exporter together
    uint64_t dropped = 0;            // removed by the bound over the life of the store
    size_t bytes = 0;                // estimate of the memory the templates and their entries hold
    std::vector<Exporter> exporters; // exporters holding at least one template, in no particular order
};

// The process-wide template store.
//
// Global scope (NetFlow v9 by default): keyed by template id alone; exporter address, source id and
// session are not part of the key, and a template and an options template with one id overwrite each
// other (intended). Never cleared, aged or bounded.
//
// Exporter scope (v9 with ETemplateScope::Exporter, and every IPFIX template): keyed by exporter address,
// domain (source id or observation domain id), wire format and template id. With a bound of N templates
// per exporter address, storing one more removes that exporter's least recently announced template and
// counts it as dropped. IPFIX templates can be withdrawn.
//
// Threads: sessions on different threads may share the store. Lookups take a shared lock and run in
// parallel; storing, withdrawing and creating the store take it exclusively. Stored templates are
// immutable and shared with the records decoded by them, so a record keeps the layout it was decoded
// with after a re-announcement or withdrawal, without a copy per record.
class CNetFlowTemplateManager {
public:
    virtual ~CNetFlowTemplateManager() = default;

    // The one store; created empty on the first call (safe from any thread).
    static CNetFlowTemplateManager* GetInstance();

    // Global scope. Replaces the entry for the template's id with a copy of its id, field count and
    // fields. An options template is stored as a plain template; its scope flags travel with its fields.
    void SetTemplate(const CNetFlowSetTemplate& decoded);

    // Global scope: the stored template for id, or null when the id has not been announced.
    std::shared_ptr<const CNetFlowSetTemplate> Lookup(int templateId) const;

    // Templates in the global scope.
    size_t GetCount() const;

    // Exporter scope. Replaces or adds the entry for (scope, id) with layout, whose own memory is about
    // layoutBytes; options marks an options template for WithdrawAll. maxTemplates bounds the templates
    // of the scope's exporter address (0: no bound). Returns the number of templates the bound dropped.
    size_t SetTemplate(const CTemplateScope& scope, int templateId,
                       std::shared_ptr<const CNetFlowSetTemplate> layout, size_t layoutBytes, bool options,
                       uint32_t maxTemplates);

    // Exporter scope: the template stored for (scope, id), or null.
    std::shared_ptr<const CNetFlowSetTemplate> Lookup(const CTemplateScope& scope, int templateId) const;

    // Exporter scope: removes (scope, id); false when it was not stored.
    bool Withdraw(const CTemplateScope& scope, int templateId);

    // Exporter scope: removes every options template (options true) or every other template (false) of
    // the scope. Returns how many were removed.
    size_t WithdrawAll(const CTemplateScope& scope, bool options);

    CTemplateStoreSnapshot GetSnapshot() const;

    // The memory estimate of a v9 template as the store keeps it.
    static size_t EstimateBytes(const CNetFlowSetTemplate& layout);

protected:
    CNetFlowTemplateManager();

private:
    friend class CNetFlowTemplateManagerTestAccess; // lets tests start from an empty store

    struct ExporterKey {
        std::array<uint8_t, 16> address{};
        uint8_t length = 0;
        bool operator==(const ExporterKey&) const = default;
    };
    struct ScopedKey {
        ExporterKey exporter;
        uint8_t protocol = 0;
        uint16_t templateId = 0;
        uint32_t domain = 0;
        bool operator==(const ScopedKey&) const = default;
    };
    struct KeyHash {
        size_t operator()(const ExporterKey& key) const;
        size_t operator()(const ScopedKey& key) const;
    };
    struct ScopedEntry {
        std::shared_ptr<const CNetFlowSetTemplate> layout;
        size_t bytes = 0;
        bool options = false;
        std::list<ScopedKey>::iterator age; // position in its exporter's announcement order
    };
    struct ExporterState {
        std::list<ScopedKey> age; // least recently announced first; its size is the templates held
        uint64_t dropped = 0;
    };

    static ScopedKey MakeKey(const CTemplateScope& scope, int templateId);
    // Removes one scoped entry and its place in the exporter's order; the exporter goes when empty.
    void Erase(std::unordered_map<ScopedKey, ScopedEntry, KeyHash>::iterator entry);

    static std::atomic<CNetFlowTemplateManager*> m_pInstance;

    mutable std::shared_mutex m_mutex;
    std::unordered_map<int, std::shared_ptr<const CNetFlowSetTemplate>> m_templates; // global scope
    size_t m_globalBytes = 0;
    std::unordered_map<ScopedKey, ScopedEntry, KeyHash> m_scoped;
    std::unordered_map<ExporterKey, ExporterState, KeyHash> m_exporters;
    size_t m_scopedBytes = 0;
    uint64_t m_dropped = 0;
};
