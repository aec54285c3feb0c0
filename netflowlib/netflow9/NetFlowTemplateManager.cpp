#include "netflow9/NetFlowTemplateManager.h"

// Lives until the process ends; never freed by the library.
CNetFlowTemplateManager* CNetFlowTemplateManager::m_pInstance = nullptr;

CNetFlowTemplateManager::CNetFlowTemplateManager() {
    m_templates.rehash(17);
}

CNetFlowTemplateManager* CNetFlowTemplateManager::GetInstance() {
    if (m_pInstance == nullptr)
        m_pInstance = new CNetFlowTemplateManager();
    return m_pInstance;
}

void CNetFlowTemplateManager::SetTemplate(const CNetFlowSetTemplate& decoded) {
    auto entry = std::make_shared<CNetFlowSetTemplate>();
    entry->m_templateId = decoded.m_templateId;
    entry->m_fieldCount = decoded.m_fieldCount;
    entry->m_fields = decoded.m_fields;
    m_templates[decoded.m_templateId] = std::move(entry);
}

std::shared_ptr<const CNetFlowSetTemplate> CNetFlowTemplateManager::Lookup(int templateId) const {
    auto it = m_templates.find(templateId);
    return it == m_templates.end() ? nullptr : it->second;
}
