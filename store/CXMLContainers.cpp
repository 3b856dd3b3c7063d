// The child records: lookup by name and running number, insertion and removal, deep copy.
#include <vector>

#include "host/StackCheck.h"
#include "store/CXML.h"

const CXMLNameIndex& CXML::nameIndex() {
    if (!nameIndex_.current()) {
        nameIndex_.rebuild(containers_);
    }
    return nameIndex_;
}

host::Ref<CXML> CXML::GetContainer(const host::String& name, std::int64_t index) {
    host::String wanted = convertRule(name);
    // The walk compares the running number with the index after every child, matching or not, so
    // index 0 is met at once by a first child of another name.
    if (index == 0 && containers_.Ubound() >= 1 && !(containers_[1]->Name() == wanted)) {
        return containers_[1];
    }
    const CXMLNameIndex& names = nameIndex();
    const std::vector<std::int64_t>& at = names.positions(wanted);
    if (index >= 1 && index <= static_cast<std::int64_t>(at.size())) {
        return containers_[at[static_cast<std::size_t>(index - 1)]];
    }
    if (names.firstNil() != 0) {
        host::raiseNilObject();  // the walk reaches the nil element before it runs out
    }
    return nullptr;
}

std::int64_t CXML::GetContainerCount(const host::String& name) {
    const CXMLNameIndex& names = nameIndex();
    if (names.firstNil() != 0) {
        host::raiseNilObject();
    }
    return static_cast<std::int64_t>(names.positions(convertRule(name)).size());
}

void CXML::InsertContainer(const host::Ref<CXML>& child) {
    if (!child) {
        return;
    }
    containers_.Append(child);
    CXMLNameIndex::treeChanged();
}

std::int64_t CXML::findNamed(const host::String& name, std::int64_t index) {
    std::int64_t count = 0;
    for (std::int64_t i = 1; i <= containers_.Ubound(); ++i) {
        if (containers_[i]->Name() == name && ++count == index) {
            return i;
        }
    }
    return 0;
}

void CXML::removeContainer(const host::String& name, std::int64_t index) {
    std::int64_t at = findNamed(convertRule(name), index);
    if (at != 0) {
        containers_.Remove(at);
        CXMLNameIndex::treeChanged();
    }
}

// Identity as the host's "Is" tests it, so a nil argument takes out the first nil element.
void CXML::removeContainer(const host::Ref<CXML>& child) {
    for (std::int64_t i = 1; i <= containers_.Ubound(); ++i) {
        if (containers_[i] == child) {
            containers_.Remove(i);
            CXMLNameIndex::treeChanged();
            return;
        }
    }
}

// The name is compared as given, and the child keeps its own name, so it may drop out of the
// list it replaced a member of.
void CXML::ReplaceContainer(const host::String& name, std::int64_t index,
                            const host::Ref<CXML>& child) {
    std::int64_t at = findNamed(name, index);
    if (at != 0) {
        containers_[at] = child;
        CXMLNameIndex::treeChanged();
    }
}

host::Ref<CXML> CXML::Clone() {
    host::checkStack();
    auto copy = host::New<CXML>();
    copy->name_ = name_;
    copy->ValueBuffer.Resize(ValueBuffer.Ubound());
    for (std::int64_t i = 1; i <= ValueBuffer.Ubound(); ++i) {
        copy->ValueBuffer[i] = ValueBuffer[i];
    }
    // Stored as they stand, so hidden values stay hidden.
    for (std::int64_t i = 0; i < Values.Count(); ++i) {
        copy->Values.SetValue(Values.Key(i), Values.valueAt(i));
    }
    copy->containers_.Resize(containers_.Ubound());
    for (std::int64_t i = 1; i <= containers_.Ubound(); ++i) {
        copy->containers_[i] = containers_[i]->Clone();
    }
    return copy;
}

void CXML::CopyInto() {}

// Goes through GetStringValue, so hidden values arrive as plain text.
void CXML::InsertValues(const host::Ref<CXML>& source) {
    std::int64_t count = source->GetKeyCount();
    for (std::int64_t i = 0; i < count; ++i) {
        host::String key = source->GetKeyByIndex(i);
        SetStringValue(key, source->GetStringValue(key));
    }
}
