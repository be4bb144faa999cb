#include "base/EByteArray.h"
#include "base/EMapStringToPtr.h"
#include "base/EPtrList.h"
#include "base/EStringArray.h"
#include "tests/AllocationCount.h"

#include <gtest/gtest.h>

namespace {

void* Pointer(long value) {
    return reinterpret_cast<void*>(value);
}

TEST(PtrList, KeepsOrderWhateverIsRemovedAndReusesItsRoom) {
    EPtrList list(4);
    for (const long element : {1, 2, 3, 4, 5, 6, 2}) {
        list.AddTail(Pointer(element));
    }
    const AllocationCount allocations;
    const auto first = list.Find(Pointer(2), nullptr);
    const auto second = list.Find(Pointer(2), first->m_pNext);
    EXPECT_EQ(list.Find(Pointer(2), second), second);
    EXPECT_EQ(list.Find(Pointer(1), first), nullptr);
    list.RemoveAt(second); // the tail
    list.RemoveAt(list.Find(Pointer(3), nullptr));
    EXPECT_EQ(list.RemoveHead(), Pointer(1));
    list.RemoveAt(list.GetHeadPosition());
    for (long i = 4; i < 10'000; ++i) {
        list.AddTail(Pointer(i + 3));
        ASSERT_EQ(list.RemoveHead(), Pointer(i));
    }
    EXPECT_EQ(allocations.Count(), 0U);
    EXPECT_EQ(list.GetCount(), 3);
    list.RemoveAll();
    EXPECT_EQ(list.RemoveHead(), nullptr);
    list.AddTail(Pointer(8));
    auto position = list.GetHeadPosition();
    EXPECT_EQ(list.GetNext(position), Pointer(8));
    EXPECT_EQ(position, nullptr);
}

TEST(MapStringToPtr, FindsExactlyWhatWasPutIn) {
    constexpr long COUNT = 100'000;
    const auto key = [](long i) { return L"Key " + std::to_wstring(i); };
    EMapStringToPtr map(4);
    void* value = &map;
    EXPECT_FALSE(map.Lookup(L"Key 0", value));
    for (long i = 0; i < COUNT; ++i) {
        void*& slot = map[key(i).c_str()];
        ASSERT_EQ(slot, nullptr);
        slot = Pointer(i + 1);
    }
    for (const wchar_t* absent : {L"key 7", L"KEY 7", L"Key 7 ", L"Key", L"", L"Key 100000"}) {
        EXPECT_FALSE(map.Lookup(absent, value));
    }
    EXPECT_EQ(value, &map) << "a key that is absent leaves the value alone";
    const AllocationCount allocations;
    EXPECT_TRUE(map.Lookup(L"Key 99999", value));
    EXPECT_EQ(map[L"Key 99998"], Pointer(COUNT - 1));
    EXPECT_EQ(allocations.Count(), 0U);

    long walked = 0;
    EString name;
    for (auto position = map.GetStartPosition(); position != nullptr; ++walked) {
        map.GetNextAssoc(position, name, value);
        ASSERT_STREQ(name, key(walked).c_str());
        ASSERT_EQ(value, Pointer(walked + 1));
        ASSERT_TRUE(map.Lookup(name, value));
        ASSERT_EQ(value, Pointer(walked + 1));
    }
    EXPECT_EQ(walked, COUNT);
}

TEST(Arrays, GrowAreCutAndRefilled) {
    const auto contents = [](const EStringArray& of) {
        std::wstring joined;
        for (int i = 0; i < of.GetSize(); ++i) {
            joined += static_cast<const wchar_t*>(of[i]) + std::wstring(L";");
        }
        return joined;
    };
    EStringArray array;
    EStringArray copy;
    array.SetAtGrow(0, L"zero");
    array.SetAtGrow(1, EString(L"one"));
    array.SetAtGrow(4, L"four");
    copy.SetAtGrow(7, L"goes");
    copy.Copy(array);
    copy.Copy(copy);
    array.SetSize(0, -1);
    array.SetAtGrow(1, L"x");
    array.SetSize(3, -1);
    EXPECT_EQ(contents(array), L";x;;") << "texts kept for their room must not come back";
    EXPECT_EQ(contents(copy), L"zero;one;;;four;");

    EByteArray bytes;
    bytes.SetSize(3, -1);
    std::copy_n("abc", 3, bytes.GetData());
    bytes.SetSize(2, -1);
    bytes.SetSize(4, -1);
    bytes.Append(bytes);
    EXPECT_EQ(std::string(bytes.GetData(), bytes.GetData() + bytes.GetSize()), std::string("ab\0\0ab\0\0", 8));
}

} // namespace
