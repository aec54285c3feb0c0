#include "netflow9/NetFlowTemplateManager.h"

#include <mutex>

namespace {

// Bytes a shared_ptr's control block made by make_shared adds to its object.
constexpr size_t kControlBlockBytes = 2 * sizeof(void*);

std::mutex& CreationMutex() {
    static std::mutex mutex;
    return mutex;
}

} // namespace

// Lives until the process ends; never freed by the library.
std::atomic<CNetFlowTemplateManager*> CNetFlowTemplateManager::m_pInstance = nullptr;

CNetFlowTemplateManager::CNetFlowTemplateManager() {
    m_templates.rehash(17);
}

CNetFlowTemplateManager* CNetFlowTemplateManager::GetInstance() {
    CNetFlowTemplateManager* store = m_pInstance.load(std::memory_order_acquire);
    if (store != nullptr)
        return store;
    std::lock_guard<std::mutex> lock(CreationMutex());
    store = m_pInstance.load(std::memory_order_relaxed);
    if (store == nullptr) {
        store = new CNetFlowTemplateManager();
        m_pInstance.store(store, std::memory_order_release);
    }
    return store;
}

size_t CNetFlowTemplateManager::EstimateBytes(const CNetFlowSetTemplate& layout) {
    return sizeof(CNetFlowSetTemplate) + kControlBlockBytes +
           layout.m_fields.capacity() * sizeof(CNetFlowField);
}

void CNetFlowTemplateManager::SetTemplate(const CNetFlowSetTemplate& decoded) {
    auto entry = std::make_shared<CNetFlowSetTemplate>();
    entry->m_templateId = decoded.m_templateId;
    entry->m_fieldCount = decoded.m_fieldCount;
    entry->m_fields = decoded.m_fields;
    const size_t bytes = EstimateBytes(*entry);
    std::unique_lock lock(m_mutex);
    auto [it, added] = m_templates.try_emplace(decoded.m_templateId);
    if (!added)
        m_globalBytes -= EstimateBytes(*it->second);
    m_globalBytes += bytes;
    it->second = std::move(entry);
}

std::shared_ptr<const CNetFlowSetTemplate> CNetFlowTemplateManager::Lookup(int templateId) const {
    std::shared_lock lock(m_mutex);
    auto it = m_templates.find(templateId);
    return it == m_templates.end() ? nullptr : it->second;
}

size_t CNetFlowTemplateManager::GetCount() const {
    std::shared_lock lock(m_mutex);
    return m_templates.size();
}

size_t CNetFlowTemplateManager::KeyHash::operator()(const ExporterKey& key) const {
    // FNV-1a over the address bytes in use.
    uint64_t hash = 1469598103934665603ull ^ key.length;
    for (size_t i = 0; i < key.length && i < key.address.size(); ++i)
        hash = (hash ^ key.address[i]) * 1099511628211ull;
    return static_cast<size_t>(hash);
}

size_t CNetFlowTemplateManager::KeyHash::operator()(const ScopedKey& key) const {
    uint64_t hash = (*this)(key.exporter);
    hash = (hash ^ key.protocol) * 1099511628211ull;
    hash = (hash ^ key.templateId) * 1099511628211ull;
    hash = (hash ^ key.domain) * 1099511628211ull;
    return static_cast<size_t>(hash);
}

CNetFlowTemplateManager::ScopedKey CNetFlowTemplateManager::MakeKey(const CTemplateScope& scope,
                                                                    int templateId) {
    ScopedKey key;
    key.exporter.length = scope.exporter.length <= 16 ? scope.exporter.length : 16;
    std::copy_n(scope.exporter.bytes.begin(), key.exporter.length, key.exporter.address.begin());
    key.protocol = static_cast<uint8_t>(scope.protocol);
    key.templateId = static_cast<uint16_t>(templateId);
    key.domain = scope.domain;
    return key;
}

size_t CNetFlowTemplateManager::SetTemplate(const CTemplateScope& scope, int templateId,
                                            std::shared_ptr<const CNetFlowSetTemplate> layout,
                                            size_t layoutBytes, bool options, uint32_t maxTemplates) {
    const ScopedKey key = MakeKey(scope, templateId);
    // The entry, its key in the exporter's order and the order's list node.
    const size_t bytes =
        layoutBytes + sizeof(ScopedKey) + sizeof(ScopedEntry) + 2 * sizeof(ScopedKey) + 4 * sizeof(void*);
    std::unique_lock lock(m_mutex);
    ExporterState& exporter = m_exporters[key.exporter];
    auto [it, added] = m_scoped.try_emplace(key);
    ScopedEntry& entry = it->second;
    if (added) {
        entry.age = exporter.age.insert(exporter.age.end(), key);
    } else {
        m_scopedBytes -= entry.bytes;
        exporter.age.splice(exporter.age.end(), exporter.age, entry.age); // announced again: newest
    }
    entry.layout = std::move(layout);
    entry.bytes = bytes;
    entry.options = options;
    m_scopedBytes += bytes;

    size_t dropped = 0;
    while (maxTemplates != 0 && exporter.age.size() > maxTemplates) {
        ++exporter.dropped;
        ++m_dropped;
        ++dropped;
        Erase(m_scoped.find(exporter.age.front()));
    }
    return dropped;
}

void CNetFlowTemplateManager::Erase(std::unordered_map<ScopedKey, ScopedEntry, KeyHash>::iterator entry) {
    auto exporter = m_exporters.find(entry->first.exporter);
    exporter->second.age.erase(entry->second.age);
    m_scopedBytes -= entry->second.bytes;
    m_scoped.erase(entry);
    // An exporter without templates is forgotten, its dropped count with it; the store's total keeps it.
    if (exporter->second.age.empty())
        m_exporters.erase(exporter);
}

std::shared_ptr<const CNetFlowSetTemplate> CNetFlowTemplateManager::Lookup(const CTemplateScope& scope,
                                                                           int templateId) const {
    if (templateId < 0 || templateId > 0xFFFF)
        return nullptr;
    const ScopedKey key = MakeKey(scope, templateId);
    std::shared_lock lock(m_mutex);
    auto it = m_scoped.find(key);
    return it == m_scoped.end() ? nullptr : it->second.layout;
}

bool CNetFlowTemplateManager::Withdraw(const CTemplateScope& scope, int templateId) {
    if (templateId < 0 || templateId > 0xFFFF)
        return false;
    const ScopedKey key = MakeKey(scope, templateId);
    std::unique_lock lock(m_mutex);
    auto it = m_scoped.find(key);
    if (it == m_scoped.end())
        return false;
    Erase(it);
    return true;
}

size_t CNetFlowTemplateManager::WithdrawAll(const CTemplateScope& scope, bool options) {
    const ScopedKey probe = MakeKey(scope, 0);
    std::unique_lock lock(m_mutex);
    auto exporter = m_exporters.find(probe.exporter);
    if (exporter == m_exporters.end())
        return 0;
    // The exporter's own order lists exactly its templates, so the walk does not visit other exporters.
    std::vector<ScopedKey> doomed;
    for (const ScopedKey& key : exporter->second.age)
        if (key.protocol == probe.protocol && key.domain == probe.domain &&
            m_scoped.find(key)->second.options == options)
            doomed.push_back(key);
    for (const ScopedKey& key : doomed)
        Erase(m_scoped.find(key));
    return doomed.size();
}

CTemplateStoreSnapshot CNetFlowTemplateManager::GetSnapshot() const {
    CTemplateStoreSnapshot snapshot;
    std::shared_lock lock(m_mutex);
    snapshot.globalTemplates = m_templates.size();
    snapshot.scopedTemplates = m_scoped.size();
    snapshot.dropped = m_dropped;
    snapshot.bytes = m_globalBytes + m_scopedBytes;
    snapshot.exporters.reserve(m_exporters.size());
    for (const auto& [key, state] : m_exporters) {
        CTemplateStoreSnapshot::Exporter& exporter = snapshot.exporters.emplace_back();
        exporter.address.bytes = key.address;
        exporter.address.length = key.length;
        exporter.templates = state.age.size();
        exporter.dropped = state.dropped;
    }
    return snapshot;
}
