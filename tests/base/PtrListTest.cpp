#include "base/EPtrList.h"
#include "tests/AllocationCount.h"

#include <gtest/gtest.h>

namespace {

TEST(PtrList, KeepsThePlacesOfTheOthersAndReusesTheRoom) {
    int values[4] = {};
    EPtrList list(4);
    for (int& value : values) {
        list.AddTail(&value);
    }
    const auto second = list.Find(&values[1], nullptr);
    auto position = list.Find(&values[2], second);
    EXPECT_EQ(list.Find(&values[0], second), nullptr);
    list.RemoveAt(second);
    EXPECT_EQ(list.RemoveHead(), &values[0]);
    const AllocationCount allocations;
    list.AddTail(&values[0]);
    list.Reserve(); // the second of the two places that are free again
    EXPECT_EQ(allocations.Count(), 0U);
    EXPECT_EQ(list.GetNext(position), &values[2]);
    EXPECT_EQ(list.GetNext(position), &values[3]);
    EXPECT_EQ(list.GetNext(position), &values[0]);
    EXPECT_EQ(position, nullptr);
    list.RemoveAll();
    EXPECT_EQ(list.RemoveHead(), nullptr);
}

} // namespace
