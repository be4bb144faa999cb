#include "base/EMapStringToPtr.h"

#include <gtest/gtest.h>

namespace {

TEST(MapStringToPtr, FindsExactlyWhatWasPutIn) {
    std::vector<int> values(100'000);
    const auto key = [](std::size_t i) { return L"Key " + std::to_wstring(i); };
    EMapStringToPtr map(4);
    for (std::size_t i = 0; i < values.size(); ++i) {
        map[key(i).c_str()] = &values[i];
    }
    void* value = nullptr;
    EString name;
    EXPECT_FALSE(map.Lookup(L"key 7", value) || map.Lookup(L"Key 7 ", value) || map.Lookup(L"", value));
    std::size_t walked = 0;
    for (auto position = map.GetStartPosition(); position != nullptr; ++walked) {
        map.GetNextAssoc(position, name, value);
        ASSERT_STREQ(name, key(walked).c_str());
        ASSERT_EQ(value, &values[walked]);
        ASSERT_TRUE(map.Lookup(name, value) && value == &values[walked]);
    }
    EXPECT_EQ(walked, values.size());
}

} // namespace
