#pragma once

#include <unordered_map>

#include "netflow9/NetFlowSetTemplate.h"

// The process-wide NetFlow v9 template store, keyed by template id alone: exporter address, source id
// and session are not part of the key, and a template and an options template with one id overwrite
// each other (intended). Created on first use, never cleared or aged. No lock: only the decoding
// thread uses it.
class CNetFlowTemplateManager {
public:
    virtual ~CNetFlowTemplateManager() = default;

    // The one store; created empty on the first call.
    static CNetFlowTemplateManager* GetInstance();

    // Replaces the entry for the template's id with a copy of its id, field count and fields. An
    // options template is stored as a plain template; its scope flags travel with its fields.
    void SetTemplate(const CNetFlowSetTemplate& decoded);

    // The stored template for id, or nullptr when the id has not been announced.
    const CNetFlowSetTemplate* Lookup(int templateId) const;

    size_t GetCount() const { return m_templates.size(); }

protected:
    CNetFlowTemplateManager();

private:
    friend class CNetFlowTemplateManagerTestAccess; // lets tests start from an empty store

    static CNetFlowTemplateManager* m_pInstance;

    std::unordered_map<int, CNetFlowSetTemplate> m_templates;
};
