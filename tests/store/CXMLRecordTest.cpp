#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "host/NilObjectException.h"
#include "store/CXML.h"

using namespace std::string_literals;
using host::String;

namespace {

TEST(CXMLRecordTest, TypedGettersParseTheStoredTextAlone) {
    constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();
    struct Case {
        std::string stored;
        std::int64_t integer;
        std::uint64_t unsigned64;
        bool boolean;
    } cases[] = {
        {" 12.9abc", 12, 12, false},
        {"-1", -1, ~0ULL, false},
        {"TRUE", 0, 0, true},
        {"1", 1, 1, false},
        {"en\0aGk="s, 0, 0, false},  // hidden text stays hidden
        {"9223372036854775808", kLowest, 1ULL << 63, false},
        {"18446744073709551615", kLowest, 0, false},  // rounds up to 2^64
    };
    for (const Case& c : cases) {
        CXML record;
        record.SetStringValue("k", String(c.stored));
        EXPECT_EQ(record.GetIntegerValue("K", 7), c.integer) << c.stored;
        EXPECT_EQ(record.GetUInt64Value("k"), c.unsigned64) << c.stored;
        EXPECT_EQ(record.getBooleanValue("k", true), c.boolean) << c.stored;
    }
    CXML empty;
    EXPECT_EQ(empty.GetIntegerValue("k", 7) + empty.GetIntegerValue("k"), 7);
    EXPECT_EQ(empty.GetUInt64Value("k", 9) + empty.GetDoubleValue("k", 2.5), 11.5);
    EXPECT_EQ(empty.GetStringValue("k", "d").bytes() + empty.GetStringValue("k").bytes(), "d");
}

TEST(CXMLRecordTest, SettersFormatAndMarkedStringsAreDecodedOnReading) {
    CXML record;
    for (auto [value, text] :
         {std::pair{-2.25, "-2.25"}, {1e-12, "0"}, {3.14159265359, "3.1415926536"}}) {
        record.SetDoubleValue("d", value);
        EXPECT_EQ(record.GetStringValue("d").bytes(), text);
        EXPECT_EQ(record.GetDoubleValue("d"), std::stod(text));
    }
    record.SetColorValue("c", host::RGB(1, 2, 3, 200));
    record.SetStringValue("e", "");
    EXPECT_EQ(record.GetStringValue("c").bytes(), "1, 2, 3");
    EXPECT_EQ(record.GetColorValue("c"), host::RGB(1, 2, 3));  // alpha is dropped
    EXPECT_EQ(record.GetColorValue("e", host::RGB(9, 9, 9)), host::RGB(9, 9, 9));
    // The two-argument getter gives a decoded value no UTF-8 label.
    for (auto [stored, plain, labelled] : {std::tuple{"EN\0aGk="s, "hi", false},
                                           {"en111aGk=en000"s, "hi", false},
                                           {"en111aGk="s, "en111aGk=", true}}) {
        record.SetStringValue("s", String(stored));
        EXPECT_EQ(record.GetStringValue("s").bytes() + record.GetStringValue("s", "x").bytes(),
                  plain + std::string(plain));
        EXPECT_EQ(record.GetStringValue("s").encoding(), host::TextEncoding::UTF8);
        EXPECT_EQ(record.GetStringValue("s", "x").encoding() == host::TextEncoding::UTF8, labelled);
    }
    record.setEncryptedStringValue("s", "12, 34, \xC3\xA9");
    EXPECT_NE(record.Values.Value("s").view().find('\0'), std::string_view::npos);
    EXPECT_EQ(record.GetStringValue("s").bytes(), "12, 34, \xC3\xA9");
    EXPECT_EQ(record.GetColorValue("s"), host::RGB(12, 34, 0));
    record.SetBinaryValue("bin", String(std::string(100, '\xFF')));  // wrapped Base64
    EXPECT_EQ(record.GetBinaryData("bin").bytes(), std::string(100, '\xFF'));
    const String raw(std::string("\xE9"));  // not UTF-8, so converting takes it as Latin-1
    record.SetStringValue(raw, "labelled");
    record.SetIntegervalue(raw, 1);
    EXPECT_EQ(record.Values.Value(raw).bytes() + record.Values.Value("\xC3\xA9").bytes(),
              "labelled1");
    record.SetStringValue("d", "12/25/2023");  // no time: those fields set 0
    record.SetDate("d", record.getDate("D"));
    EXPECT_EQ(record.GetStringValue("d").bytes(), "12/25/2023 0:0:0");
    record.SetDate("d", nullptr);  // clears
    EXPECT_TRUE(record.getDate("d") == nullptr);
}

host::Ref<CXML> named(const char* name) {
    auto record = host::New<CXML>();
    record->SetName(name);
    return record;
}

TEST(CXMLRecordTest, ChildrenByRunningNumberSharingCloneAndRelease) {
    auto list = host::New<CXML>();
    host::Ref<CXML> a1 = named("a"), b = named("b"), a2 = named("A");
    for (const auto& child : {a1, b, a2, host::Ref<CXML>()}) {
        list->InsertContainer(child);  // nil is ignored
    }
    struct Case {
        const char* name;
        std::int64_t index;
        host::Ref<CXML> expected;
    } cases[] = {{"a", 1, a1}, {"a", 2, a2}, {"B", 1, b},   {"zzz", 0, a1},
                 {"a", 0, {}}, {"a", 3, {}}, {"a", -1, {}}, {"", 1, {}}};
    for (const Case& c : cases) {
        EXPECT_TRUE(list->GetContainer(c.name, c.index) == c.expected) << c.name << c.index;
    }
    list->removeContainer("a", 0);
    list->ReplaceContainer("a", 0, named("x"));
    list->ReplaceContainer("a", 1, named("other"));  // keeps its own name
    EXPECT_EQ(list->GetContainerCount("a"), 1);
    list->removeContainer("a", 1);
    EXPECT_TRUE(list->GetContainer("b", 1) == b && list->Containers().Ubound() == 2);

    host::Ref<CXML> unit = named("unit"), first = host::New<CXML>(), second = host::New<CXML>();
    first->InsertContainer(unit);
    second->InsertContainer(unit);
    first->GetContainer("unit", 1)->setEncryptedStringValue("k", "v");
    host::Ref<CXML> copy = first->Clone()->GetContainer("unit", 1);
    EXPECT_TRUE(copy->Values.Value("k").sameBytes(unit->Values.Value("k")));  // still hidden
    copy->SetStringValue("k", "changed");
    EXPECT_EQ(second->GetContainer("unit", 1)->GetStringValue("k").bytes(), "v");
    second->InsertValues(unit);
    EXPECT_EQ(second->Values.Value("k").bytes(), "v");  // in plain text
    unit->InsertContainer(named("a"));
    first->InsertContainer(first);  // holding itself must not make Release loop
    first->Release();
    EXPECT_TRUE(first->Containers().Ubound() == 2 && unit->Containers()[1] == nullptr);
    EXPECT_THROW(first->GetContainerCount("b"), host::NilObjectException);
    EXPECT_THROW(first->Clone(), host::NilObjectException);
    EXPECT_EQ(first->SaveToString().size(), 9u);
    first->removeContainer(host::Ref<CXML>());  // a nil argument takes out a nil element
    EXPECT_EQ(first->Containers().Ubound(), 1);
}

// Lookups answer from an index, which every change to children or to a name must retire.
TEST(CXMLRecordTest, LookupsFollowEveryChangeOfChildrenAndNames) {
    auto units = host::New<CXML>();
    for (const char* name : {"unit", "unit", "other"}) {
        units->InsertContainer(named(name));
    }
    EXPECT_EQ(units->GetContainerCount("unit"), 2);
    units->GetContainer("other", 1)->SetName("UNIT");
    EXPECT_TRUE(units->GetContainer("unit", 3) == units->Containers()[3]);
    units->removeContainer("unit", 1);
    EXPECT_TRUE(units->GetContainer("unit", 2) == units->Containers()[2]);
    units->ReplaceContainer("unit", 2, nullptr);
    EXPECT_TRUE(units->GetContainer("unit", 1) == units->Containers()[1]);   // before the nil
    EXPECT_THROW(units->GetContainer("unit", 2), host::NilObjectException);  // reaches it
    EXPECT_THROW(units->GetContainerCount("x"), host::NilObjectException);
}

}  // namespace
