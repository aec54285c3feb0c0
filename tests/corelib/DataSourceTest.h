#pragma once
// Base for database tests run once per backend (SQLite and PostgreSQL).

#include <gtest/gtest.h>

#include <memory>

#include "corelib/TestDataSource.h"

namespace tpnf::test {

inline std::string BackendParamName(const testing::TestParamInfo<Backend>& info) {
    return BackendName(info.param);
}

// Base for tests run once per backend: makes the data source and skips when it is not available.
class DataSourceTest : public testing::TestWithParam<Backend> {
protected:
    void SetUp() override {
        m_source = std::make_unique<TestDataSource>(GetParam());
        if (!m_source->SkipReason().empty())
            GTEST_SKIP() << m_source->SkipReason();
    }
    void TearDown() override { m_source.reset(); }

    TestDataSource& Source() { return *m_source; }
    bool IsSQLite() const { return GetParam() == Backend::SQLite; }

    std::unique_ptr<TestDataSource> m_source;
};

} // namespace tpnf::test
