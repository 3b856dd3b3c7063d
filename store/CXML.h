#pragma once

#include <cstdint>
#include <string_view>

#include "host/Array.h"
#include "host/BinaryStream.h"
#include "host/Color.h"
#include "host/Date.h"
#include "host/Dictionary.h"
#include "host/FolderItem.h"
#include "host/MemoryBlock.h"
#include "host/Ref.h"
#include "host/String.h"
#include "store/CXMLNameIndex.h"

// A record of string keys with string values and an ordered list of named child records; its one
// stored form is the byte stream of SaveToBinaryData. Every value is text: typed setters format
// on the way in and typed getters parse on the way out, so any getter may be used on any key.
//
// Keys and values are kept in UTF-8 by two rules: convertRule converts whatever is not UTF-8,
// defineRule only labels untagged bytes as UTF-8 and converts other encodings. Each operation
// applies a fixed one to its key and to its value.
//
// The children and the record's Name are reached through accessors so that every change to them
// reaches CXMLNameIndex, which makes walking a list by running number cheap.
//
// Operations are declared in the order of the class's table of virtual operations.
class CXML {
public:
    CXML() = default;
    // Takes the tree apart without recursion, so a chain of any depth can die.
    virtual ~CXML();
    CXML(const CXML&) = delete;
    CXML& operator=(const CXML&) = delete;

    virtual void Constructor();
    virtual host::String GetStringValue(const host::String& key);
    virtual std::int64_t GetIntegerValue(const host::String& key);
    virtual double GetDoubleValue(const host::String& key);
    virtual void SetStringValue(const host::String& key, const host::String& value);
    virtual void SetIntegervalue(const host::String& key, std::int64_t value);
    virtual void SetDoubleValue(const host::String& key, double value);
    // The index-th child (from 1) bearing name. Index 0 gives the first child when that child
    // bears another name, since the walk tests the index after every child.
    virtual host::Ref<CXML> GetContainer(const host::String& name, std::int64_t index);
    virtual std::int64_t GetContainerCount(const host::String& name);
    virtual void InsertContainer(const host::Ref<CXML>& child);
    virtual double GetDoubleValue(const host::String& key, double defaultValue);
    virtual std::int64_t GetIntegerValue(const host::String& key, std::int64_t defaultValue);
    virtual host::String GetStringValue(const host::String& key, const host::String& defaultValue);
    virtual bool GetBooleanValue(const host::String& key);
    virtual void SetBooleanValue(const host::String& key, bool value);
    virtual void SetDate(const host::String& key, const host::Ref<host::Date>& value);
    virtual host::Ref<host::Date> getDate(const host::String& key);
    virtual host::Ref<host::Date> getDate(const host::String& key,
                                          const host::Ref<host::Date>& defaultValue);
    virtual host::Ref<CXML> Clone();
    virtual void removeContainer(const host::String& name, std::int64_t index);
    virtual void removeContainer(const host::Ref<CXML>& child);
    virtual bool getBooleanValue(const host::String& key, bool defaultValue);
    virtual host::String SaveToPlistStringDEP();
    virtual void ReplaceContainer(const host::String& name, std::int64_t index,
                                  const host::Ref<CXML>& child);
    virtual void removeObject(const host::String& key);
    // The second argument is taken and never looked at.
    virtual void loadFromFile(const host::Ref<host::FolderItem>& file,
                              const host::Ref<CXML>& second);
    virtual void SaveToPlistDEP(const host::Ref<CXML>& target);
    virtual bool SaveToFile(const host::Ref<host::FolderItem>& file);
    virtual void setEncryptedStringValue(const host::String& key, const host::String& value);
    virtual std::int64_t GetKeyCount();
    virtual host::String GetKeyByIndex(std::int64_t index);
    virtual void DeleteObjects();
    virtual bool ObjectExists(const host::String& key);
    virtual void SetColorValue(const host::String& key, host::Color value);
    virtual host::Color GetColorValue(const host::String& key);
    virtual host::Color GetColorValue(const host::String& key, host::Color defaultValue);
    virtual void SetFile(const host::String& key, const host::Ref<host::FolderItem>& file);
    virtual host::Ref<host::FolderItem> GetFile(const host::String& key);
    virtual void SetBinaryValue(const host::String& key, const host::String& data);
    virtual host::String GetBinaryData(const host::String& key);
    virtual void loadFromString(const host::String& data);
    virtual host::String DecodeXMLString(const host::String& text);
    virtual void InsertValues(const host::Ref<CXML>& source);
    virtual void Release();
    virtual void SaveToBinaryData(const host::Ref<host::BinaryStream>& stream);
    virtual host::Ref<host::MemoryBlock> NewBinaryBlock(std::int64_t size,
                                                        const host::String& byteOrder);
    virtual void MergeArrays(host::Array<host::Ref<host::MemoryBlock>>& target,
                             const host::Array<host::Ref<host::MemoryBlock>>& source);
    virtual std::int64_t SizeOfArray(const host::Array<host::Ref<host::MemoryBlock>>& blocks);
    virtual host::String SaveToString();
    virtual void LoadFromBinaryStream(const host::Ref<host::BinaryStream>& stream);
    virtual void CopyInto();
    virtual void DebugToLog();
    virtual std::uint64_t GetUInt64Value(const host::String& key, std::uint64_t defaultValue);
    virtual std::uint64_t GetUInt64Value(const host::String& key);
    virtual void saveToReadableString(const host::Ref<host::BinaryStream>& stream,
                                      std::int64_t depth);
    virtual host::String getAsDebugData();

    // The record's name among its siblings; no key of the record.
    const host::String& Name() const { return name_; }
    void SetName(const host::String& name);
    // The children from index 1 up; index 0 exists and holds nil for the record's whole life.
    const host::Array<host::Ref<CXML>>& Containers() const { return containers_; }

    host::Dictionary<host::String> Values;
    // Nothing fills or reads it; Clone copies it.
    host::Array<host::String> ValueBuffer = host::Array<host::String>(0);
    // Deprecated: nothing sets or reads these.
    bool IsPlistDEP = false;
    host::Ref<host::Dictionary<host::String>> RootPlistDictionaryDEP;
    host::String LastArrayName;

private:
    static constexpr std::string_view kMagic = "Mfrq";
    // "en" and a zero byte: what opens a hidden string.
    static const host::String& hiddenMark();
    static host::String convertRule(const host::String& text);
    static host::String defineRule(const host::String& text);
    // The stored text under key after the convert rule, or null.
    host::String* storedText(const host::String& key);
    // Array position of the index-th child bearing name, counted on a match only; 0 for none.
    std::int64_t findNamed(const host::String& name, std::int64_t index);
    const CXMLNameIndex& nameIndex();
    // The byte count of SaveToBinaryData's output.
    std::int64_t storedSize();
    // Clears the child lists of root and of the records below it, iteratively. Unless sharedToo,
    // it descends only into children that root's tree alone holds, which are about to die.
    static void cutTree(CXML& root, bool sharedToo);

    host::String name_;
    host::Array<host::Ref<CXML>> containers_ = host::Array<host::Ref<CXML>>(0);
    CXMLNameIndex nameIndex_;
};
