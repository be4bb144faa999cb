#include "base/EMapStringToPtr.h"
#include "base/EPtrList.h"
#include "tests/AllocationCount.h"

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
        int& number = *static_cast<int*>(value);
        ASSERT_STREQ(name, key(static_cast<std::size_t>(&number - values.data())).c_str());
        ASSERT_EQ(++number, 1);
        ASSERT_TRUE(map.Lookup(name, value) && value == &number);
    }
    EXPECT_EQ(walked, values.size());
}

TEST(PtrList, KeepsThePlacesOfTheOthersAndReusesTheRoom) {
    int values[4] = {};
    EPtrList list(4);
    for (int& value : values) {
        list.AddTail(&value);
    }
    const auto second = list.Find(&values[1], nullptr);
    const auto third = list.Find(&values[2], second);
    EXPECT_EQ(list.Find(&values[0], second), nullptr);
    list.RemoveAt(second);
    EXPECT_EQ(list.RemoveHead(), &values[0]);
    const AllocationCount allocations;
    list.AddTail(&values[0]);
    list.Reserve(); // the second of the two places that are free again
    EXPECT_EQ(allocations.Count(), 0U);
    auto position = third;
    EXPECT_EQ(list.GetNext(position), &values[2]);
    EXPECT_EQ(list.GetNext(position), &values[3]);
    EXPECT_EQ(list.GetNext(position), &values[0]);
    EXPECT_EQ(position, nullptr);
    list.RemoveAll();
    EXPECT_EQ(list.RemoveHead(), nullptr);
    EXPECT_EQ(list.GetHeadPosition(), nullptr);
}

} // namespace
