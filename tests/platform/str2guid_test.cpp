// Str2Guid: the registry spelling of a GUID, strictly.
#include <gtest/gtest.h>


#include "zqPlatform.h"

namespace {

// {8C7ED206-3F8A-4827-B3AB-AE9E1FAEFC6C}, the container-identifier property's format id.
const GUID kContainerIdFormat = {0x8C7ED206, 0x3F8A, 0x4827, {0xB3, 0xAB, 0xAE, 0x9E, 0x1F, 0xAE, 0xFC, 0x6C}};

TEST(Str2Guid, BracesAreOptionalAndLetterCaseIsFree) {
    EXPECT_EQ(Str2Guid(L"{8C7ED206-3F8A-4827-B3AB-AE9E1FAEFC6C}"), kContainerIdFormat);
    EXPECT_EQ(Str2Guid(L"8c7ed206-3f8a-4827-b3ab-ae9e1faefc6c"), kContainerIdFormat);
    EXPECT_EQ(Str2Guid(L"{8c7eD206-3F8a-4827-b3AB-aE9E1faEFC6c}"), kContainerIdFormat);
    EXPECT_EQ(Str2Guid(L"{00000000-0000-0000-0000-000000000000}"), GUID_NULL);
}

TEST(Str2Guid, AnythingButTheExactSpellingGivesGuidNull) {
    const wchar_t* const bad[] = {
        L"",
        L"{}",
        L"{8C7ED206-3F8A-4827-B3AB-AE9E1FAEFC6C",    // one brace
        L"8C7ED206-3F8A-4827-B3AB-AE9E1FAEFC6C}",
        L"(8C7ED206-3F8A-4827-B3AB-AE9E1FAEFC6C)",
        L"{8C7ED206-3F8A-4827-B3AB-AE9E1FAEFC6}",    // a digit short
        L"{8C7ED206-3F8A-4827-B3AB-AE9E1FAEFC6C0}",  // a digit more
        L"{8C7ED2063-F8A-4827-B3AB-AE9E1FAEFC6C}",   // dash moved
        L"{8C7ED206-3F8A-4827-B3ABAE9E1FAEFC6C0}",   // dash missing
        L"{8C7ED206-3F8A-4827-B3AB-AE9E1FAEFC6G}",   // not hex
        L" {8C7ED206-3F8A-4827-B3AB-AE9E1FAEFC6C}",
        L"{8C7ED206-3F8A-4827-B3AB-AE9E1FAEFC6C} ",
        L"8C7ED2063F8A4827B3ABAE9E1FAEFC6C",
        L"{+C7ED206-3F8A-4827-B3AB-AE9E1FAEFC6C}",  // what strtoul would take
        L"{8C7ED206-0x8A-4827-B3AB-AE9E1FAEFC6C}",
    };
    for (const wchar_t* text : bad) EXPECT_EQ(Str2Guid(text), GUID_NULL) << text;
    // An embedded terminator inside an otherwise well-formed length.
    CStringW withNul(L"{8C7ED206-3F8A-4827-B3AB-AE9E1FAE\0C6C}", 38);
    EXPECT_EQ(Str2Guid(withNul), GUID_NULL);
}

}  // namespace
