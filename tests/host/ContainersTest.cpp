#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

#include "host/Array.h"
#include "host/Dictionary.h"
#include "host/IllegalCastException.h"
#include "host/KeyNotFoundException.h"
#include "host/NilObjectException.h"
#include "host/OutOfBoundsException.h"
#include "host/Ref.h"
#include "host/String.h"

namespace host {
namespace {

TEST(ContainersTest, StringEqualityFoldsOnlyAsciiLettersAndConcatenationMergesTags) {
    EXPECT_EQ(String("MAC Address"), String("mac address"));
    EXPECT_NE(String("\xC3\x89"), String("\xC3\xA9"));  // É and é
    EXPECT_NE(String("@"), String("`"));                // differ only by the 0x20 bit
    EXPECT_EQ((String("a") + String(std::string("b"))).encoding(), TextEncoding::None);
    // An empty side, on either hand, takes no part in the tag.
    EXPECT_EQ((String() + String("a") + String()).encoding(), TextEncoding::UTF8);
}

TEST(ContainersTest, DictionaryMixesKeyKindsOnBothSidesOfTheHashIndex) {
    for (int size : {3, 30}) {
        Dictionary<int> d;
        for (int i = 0; i < size; ++i) {
            d.SetValue(String("Key" + std::to_string(i)), i);
        }
        d.SetValue(0.0, -1);
        d.SetValue("KEY1", 100);  // overwrites in place, keeps the first spelling
        EXPECT_EQ(d.Key(1).stringValue().bytes(), "Key1");
        EXPECT_EQ(d.Value("key1"), 100);
        EXPECT_EQ(d.Value(-0.0), -1);
        EXPECT_FALSE(d.HasKey("0"));

        // Removing while walking a Keys() copy, down to a linear scan again.
        Array<DictionaryKey> keys = d.Keys();
        for (int i = 0; i < size - 2; ++i) {
            d.Remove(keys[i]);
        }
        ASSERT_EQ(d.Count(), 3);
        EXPECT_EQ(d.Key(0).stringValue().bytes(), "Key" + std::to_string(size - 2));
        EXPECT_EQ(*d.lookup(String("KEY" + std::to_string(size - 1))), size - 1);
        EXPECT_THROW(d.Value("Key0"), KeyNotFoundException);
        EXPECT_THROW(d.Key(3), OutOfBoundsException);
    }
}

TEST(ContainersTest, ArrayBoundsAreChecked) {
    EXPECT_EQ(Array<int>(2).Count(), 3);  // like Dim a(2)
    Array<int> a{10, 20};
    a.Insert(2, 30);  // at Count appends
    a.Insert(0, 5);
    a.Remove(1);
    EXPECT_EQ(std::vector<int>(a.begin(), a.end()), (std::vector<int>{5, 20, 30}));
    EXPECT_THROW(a[3], OutOfBoundsException);
    EXPECT_THROW(a[-1], OutOfBoundsException);
    EXPECT_THROW(a.Insert(4, 1), OutOfBoundsException);
    EXPECT_THROW(a.Resize(-2), OutOfBoundsException);
}

struct Animal {
    virtual ~Animal() = default;
};
struct Dog : Animal {};
struct Cat : Animal {};

static_assert(std::is_convertible_v<Ref<Dog>, Ref<Animal>>);
static_assert(!std::is_convertible_v<Ref<Animal>, Ref<Dog>>);

TEST(ContainersTest, RefIdentityAndCast) {
    Ref<Dog> dog = New<Dog>();
    Ref<Animal> animal = dog;
    EXPECT_TRUE(animal == dog);
    EXPECT_FALSE(animal == New<Dog>());
    EXPECT_EQ(Cast<Dog>(animal).get(), dog.get());
    EXPECT_THROW(Cast<Cat>(animal), IllegalCastException);
    EXPECT_TRUE(Cast<Cat>(Ref<Animal>()).IsNil());
    EXPECT_THROW(Ref<String>()->size(), NilObjectException);
}

}  // namespace
}  // namespace host
