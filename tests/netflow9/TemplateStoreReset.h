#pragma once
// Test-only access to the process-wide template store, so every test starts from an empty store and
// does not depend on the order tests run in.

#include <gtest/gtest.h>

#include "netflow9/NetFlowTemplateManager.h"

class CNetFlowTemplateManagerTestAccess {
public:
    static void Reset() {
        delete CNetFlowTemplateManager::m_pInstance;
        CNetFlowTemplateManager::m_pInstance = nullptr;
    }
    static bool Exists() { return CNetFlowTemplateManager::m_pInstance != nullptr; }
};

// Fixture for every test that decodes v9 datagrams.
class EmptyTemplateStore : public ::testing::Test {
protected:
    void SetUp() override { CNetFlowTemplateManagerTestAccess::Reset(); }
    void TearDown() override { CNetFlowTemplateManagerTestAccess::Reset(); }
};
