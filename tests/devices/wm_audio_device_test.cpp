// The endpoint record: value semantics for its fields, one reference per record on its endpoint.
#include <gtest/gtest.h>

#include "counted_endpoint.h"
#include "zqCoreAudio.h"

namespace {

using zqtest::CountedEndpoint;

const GUID kContainer = {0x12345678, 0x9ABC, 0xDEF0, {1, 2, 3, 4, 5, 6, 7, 8}};

void FillMicrophone(CWMAudioDevice& d, IMMDevice* endpoint) {
    d.SetName(L"Microphone (KV-1)");
    d.SetFriendlyName(L"KV Studio");
    d.SetManufacturer(L"KESTRAVON");
    d.SetProduct(L"KV-1");
    d.SetSN(L"SN0001");
    d.SetHidContainerID(kContainer);
    d.SetDevice(endpoint);
}

TEST(WMAudioDevice, EachRecordHoldsExactlyOneReferenceOnItsEndpoint) {
    CountedEndpoint endpoint;  // the test's own reference: 1
    {
        CWMAudioDevice original;
        original.SetDevice(&endpoint);
        EXPECT_EQ(endpoint.Refs(), 2u);
        original.SetDevice(&endpoint);  // the same endpoint again changes nothing
        EXPECT_EQ(endpoint.Refs(), 2u);
        EXPECT_EQ(original.GetDevice(), &endpoint);  // no reference added by the getter
        EXPECT_EQ(endpoint.Refs(), 2u);

        auto* copy = new CWMAudioDevice(original);
        EXPECT_EQ(endpoint.Refs(), 3u);
        CWMAudioDevice assigned;
        assigned = original;
        EXPECT_EQ(endpoint.Refs(), 4u);
        delete copy;
        EXPECT_EQ(endpoint.Refs(), 3u);
        EXPECT_EQ(assigned.GetDevice(), &endpoint);

        assigned.SetDevice(nullptr);
        EXPECT_EQ(endpoint.Refs(), 2u);
        EXPECT_EQ(assigned.GetDevice(), nullptr);
    }
    EXPECT_EQ(endpoint.Refs(), 1u);  // every record gave its reference back once
}

TEST(WMAudioDevice, AssignmentReplacesTheEndpointCopiesEveryFieldAndToItselfChangesNothing) {
    CountedEndpoint first, second;
    CWMAudioDevice src;
    FillMicrophone(src, &second);
    src.MarkEditNow(true);
    CWMAudioDevice dst;
    dst.SetDevice(&first);
    dst = src;
    EXPECT_EQ(first.Refs(), 1u);
    EXPECT_EQ(second.Refs(), 3u);
    EXPECT_EQ(dst.GetName(), L"Microphone (KV-1)");
    EXPECT_EQ(dst.GetFriendlyName(), L"KV Studio");
    EXPECT_EQ(dst.GetManufacturer(), L"KESTRAVON");
    EXPECT_EQ(dst.GetProduct(), L"KV-1");
    EXPECT_EQ(dst.GetSN(), L"SN0001");
    EXPECT_EQ(dst.GetHidContainerID(), kContainer);
    EXPECT_TRUE(dst.IsEditNow());
    CWMAudioDevice constructed(src);
    EXPECT_TRUE(constructed.IsEditNow());
    EXPECT_EQ(constructed.GetSN(), L"SN0001");

    // Assigned to itself, a record keeps its endpoint and its reference on it.
    CWMAudioDevice& alias = dst;
    dst = alias;
    EXPECT_EQ(second.Refs(), 4u);
    EXPECT_EQ(dst.GetDevice(), &second);
    EXPECT_EQ(dst.GetSN(), L"SN0001");
}

TEST(WMAudioDevice, ClearEmptiesEverythingButTheEditMark) {
    CountedEndpoint endpoint;
    CWMAudioDevice d;
    FillMicrophone(d, &endpoint);
    d.MarkEditNow(true);
    d.Clear();
    EXPECT_TRUE(d.IsEditNow());
    EXPECT_EQ(endpoint.Refs(), 1u);
    EXPECT_EQ(d.GetDevice(), nullptr);
    EXPECT_TRUE(d.GetName().IsEmpty());
    EXPECT_TRUE(d.GetSN().IsEmpty());
    EXPECT_TRUE(d.GetProduct().IsEmpty());
    EXPECT_EQ(d.GetHidContainerID(), GUID_NULL);
    d.Clear();  // twice is harmless
    EXPECT_EQ(endpoint.Refs(), 1u);
    d.MarkEditNow(false);
    EXPECT_FALSE(d.IsEditNow());
}

}  // namespace
