#pragma once

#include <memory>
#include <unordered_map>

#include "netflow9/NetFlowSetTemplate.h"

// The process-wide NetFlow v9 template store, keyed by template id alone: exporter address, source id
// and session are not part of the key, and a template and an options template with one id overwrite
// each other (intended). Created on first use, never cleared or aged. No lock: only the decoding
// thread uses it.
//
// Stored templates are immutable and shared with the records decoded by them, so a record keeps the
// layout it was decoded with after a re-announcement, without a copy per record.
class CNetFlowTemplateManager {
public:
    virtual ~CNetFlowTemplateManager() = default;

    // The one store; created empty on the first call.
    static CNetFlowTemplateManager* GetInstance();

    // Replaces the entry for the template's id with a copy of its id, field count and fields. An
    // options template is stored as a plain template; its scope flags travel with its fields.
    void SetTemplate(const CNetFlowSetTemplate& decoded);

    // The stored template for id, or null when the id has not been announced.
    std::shared_ptr<const CNetFlowSetTemplate> Lookup(int templateId) const;

    size_t GetCount() const { return m_templates.size(); }

protected:
    CNetFlowTemplateManager();

private:
    friend class CNetFlowTemplateManagerTestAccess; // lets tests start from an empty store

    static CNetFlowTemplateManager* m_pInstance;

    std::unordered_map<int, std::shared_ptr<const CNetFlowSetTemplate>> m_templates;
};
