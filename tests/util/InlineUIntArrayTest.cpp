#include <gtest/gtest.h>

#include <utility>

#include "util/NetFlowIPAddress.h"
#include "util/Types.h"

using Small = CInlineUIntArray<4>;

TEST(InlineUIntArray, DefaultIsEmpty) {
    Small a;
    EXPECT_TRUE(a.empty());
    EXPECT_EQ(a.size(), 0u);
    EXPECT_EQ(a.begin(), a.end());
}

TEST(InlineUIntArray, ResizeFillsNewElementsWithZero) {
    Small a{7, 8};
    a.resize(4);
    EXPECT_EQ(a, (CUIntArray{7, 8, 0, 0}));
    a.resize(1);
    a.resize(3);
    EXPECT_EQ(a, (CUIntArray{7, 0, 0}));
}

TEST(InlineUIntArray, GrowingPastInlineCapacityKeepsEveryElement) {
    Small a{1, 2, 3, 4};
    a.push_back(5);
    a.push_back(6);
    EXPECT_EQ(a.size(), 6u);
    EXPECT_EQ(a, (CUIntArray{1, 2, 3, 4, 5, 6}));
    a.resize(8);
    EXPECT_EQ(a, (CUIntArray{1, 2, 3, 4, 5, 6, 0, 0}));
}

TEST(InlineUIntArray, ShrinkingBackUnderCapacityKeepsTheFirstElements) {
    Small a{1, 2, 3, 4, 5, 6};
    a.resize(3);
    EXPECT_EQ(a, (CUIntArray{1, 2, 3}));
    a.resize(4);
    EXPECT_EQ(a, (CUIntArray{1, 2, 3, 0}));
}

TEST(InlineUIntArray, AssignReplacesContentsAtEitherSize) {
    Small a{9, 9, 9, 9, 9, 9};
    a.assign(2, 5u);
    EXPECT_EQ(a, (CUIntArray{5, 5}));
    const uint8_t bytes[] = {10, 20, 30, 40, 50};
    a.assign(bytes, bytes + 5);
    EXPECT_EQ(a, (CUIntArray{10, 20, 30, 40, 50}));
    a = {1};
    EXPECT_EQ(a, (CUIntArray{1}));
    a.clear();
    EXPECT_TRUE(a.empty());
}

TEST(InlineUIntArray, CopiesAreIndependentAtEitherSize) {
    Small inlineOne{1, 2};
    Small heapOne{1, 2, 3, 4, 5};
    Small inlineCopy(inlineOne);
    Small heapCopy;
    heapCopy = heapOne;
    inlineOne[0] = 99;
    heapOne[4] = 99;
    EXPECT_EQ(inlineCopy, (CUIntArray{1, 2}));
    EXPECT_EQ(heapCopy, (CUIntArray{1, 2, 3, 4, 5}));
}

TEST(InlineUIntArray, AssigningAcrossTheInlineLimitReplacesEveryElement) {
    Small shortOne{1, 2};
    Small longOne{3, 4, 5, 6, 7};
    Small target{9, 9, 9};
    target = longOne;
    EXPECT_EQ(target, (CUIntArray{3, 4, 5, 6, 7}));
    target = shortOne;
    EXPECT_EQ(target, (CUIntArray{1, 2}));
    target.push_back(8);
    EXPECT_EQ(target, (CUIntArray{1, 2, 8}));
    EXPECT_EQ(longOne, (CUIntArray{3, 4, 5, 6, 7}));
}

TEST(InlineUIntArray, MovedFromArrayIsEmpty) {
    Small heapOne{1, 2, 3, 4, 5};
    Small moved(std::move(heapOne));
    EXPECT_EQ(moved, (CUIntArray{1, 2, 3, 4, 5}));
    EXPECT_TRUE(heapOne.empty()); // NOLINT(bugprone-use-after-move): the state after a move is the point
    Small inlineOne{6, 7};
    moved = std::move(inlineOne);
    EXPECT_EQ(moved, (CUIntArray{6, 7}));
    EXPECT_TRUE(inlineOne.empty()); // NOLINT(bugprone-use-after-move)
}

TEST(InlineUIntArray, EqualityComparesElementsNotStorage) {
    Small heapOne{1, 2, 3, 4, 5};
    heapOne.resize(2);
    EXPECT_TRUE(heapOne == (Small{1, 2}));
    EXPECT_FALSE(heapOne == (Small{1, 2, 0}));
    EXPECT_FALSE(heapOne == (CUIntArray{1, 3}));
}

TEST(InlineUIntArray, AddressLongerThanIPv6RendersAsBefore) {
    // 18 elements: nine groups, past the inline room of an IPv6 address.
    CNetFlowIPAddress address;
    for (uint32_t i = 0; i < 18; ++i)
        address.m_address.push_back(i);
    EXPECT_EQ(address.m_address.size(), 18u);
    EXPECT_EQ(address.ToString(), L"0001:0203:0405:0607:0809:0A0B:0C0D:0E0F:1011");
}
