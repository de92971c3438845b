// FixedStringMap.h: a chained hash map from FixedString to a value. Keys hash by their interned
// handle, so lookups compare pointers and the order of iteration changes from run to run.
#pragma once

#include "CoreLib/ChainedTable.h"
#include "CoreLib/ElementPolicies.h"
#include "CoreLib/FixedString.h"
#include "CoreLib/MemoryManager.h"
#include "CoreLib/Report.h"

#include <cstring>

namespace zn {

template <typename V>
struct FixedStringMapNode {
    FixedStringMapNode* m_Next;
    // Holds one reference on the key's entry.
    FixedString m_Key;
    V m_Value;
};

// A is the node allocator (ObjectAllocator), R the reset policy applied to values the map drops.
template <typename A, typename R, typename V>
class FixedStringMapBase
    : public ChainedTable<FixedStringMapBase<A, R, V>, FixedStringMapNode<V>, FixedString, V> {
    using Table = ChainedTable<FixedStringMapBase<A, R, V>, FixedStringMapNode<V>, FixedString, V>;
    friend Table;

public:
    using Node = FixedStringMapNode<V>;
    using typename Table::Position;

    // The bucket count of nearly every map.
    static constexpr unsigned int kDefaultBucketCount = 37;
    // The bucket count of the XML serializer's table of strings.
    static constexpr unsigned int kSerializerBucketCount = 9907;

    // An empty map of bucketCount chains (0 is taken as 1), from "GLOBAL" and cleared.
    explicit FixedStringMapBase(unsigned int bucketCount = kDefaultBucketCount) : Table(bucketCount) {
        size_t bytes = sizeof(Node*) * this->m_BucketCount;
        this->m_Buckets = static_cast<Node**>(MemoryManager::GlobalMalloc(bytes, 0));
        if (this->m_Buckets == nullptr) {
            ZN_REPORT("Hashtable is not valid!");
            return;
        }
        std::memset(static_cast<void*>(this->m_Buckets), 0, bytes);
    }
    // A map of other's bucket count holding its entries.
    FixedStringMapBase(const FixedStringMapBase& other) : FixedStringMapBase(other.m_BucketCount) {
        AddEntriesOf(other);
    }
    // Adds other's entries to this map's; a key held already is reported and takes other's value.
    FixedStringMapBase& operator=(const FixedStringMapBase& other) {
        if (this != &other) {
            AddEntriesOf(other);
        }
        return *this;
    }
    ~FixedStringMapBase() {
        this->RemoveAll();
        MemoryManager::GlobalFree(this->m_Buckets, 0);
    }

    unsigned int GetCount() const { return m_Count; }
    bool IsEmpty() const { return m_Count == 0; }

    // Replaces the value of key, or adds the entry in front of its bucket's chain.
    void SetAt(const FixedString& key, const V& value) {
        if (this->m_Buckets == nullptr) {
            ZN_REPORT("Hashtable is not valid!");
            return;
        }
        if (Node* found = this->FindNode(key)) {
            found->m_Value = value;
            return;
        }
        Node*& chain = this->m_Buckets[BucketOf(key)];
        Node* node = m_Allocator.template New<Node>(chain, key, value);
        if (node == nullptr) {
            ZN_REPORT("New item should not be NULL!");
            return;
        }
        chain = node;
        ++m_Count;
    }

    // Checks that every node sits in its key's bucket, keys are unique, and the count matches.
    bool Validate() const { return this->CheckChains() == static_cast<long>(m_Count); }

private:
    unsigned int BucketOf(const FixedString& key) const {
        return FixedStringRefMapHashFunctor::KeyToHashIndex(key, this->m_BucketCount);
    }
    static bool KeysEqual(const FixedString& left, const FixedString& right) { return left == right; }
    // Resets the value, gives the key's reference back with the node, and counts the entry out.
    void DropNode(Node* node) {
        R reset;
        reset(node->m_Value);
        m_Allocator.Delete(node);
        --m_Count;
    }
    void AddEntriesOf(const FixedStringMapBase& other) {
        for (const Node* node = other.GetStartPosition(); node != nullptr; node = other.NextNode(node)) {
            if (this->Contains(node->m_Key)) {
                const char* text = node->m_Key.ToChar();
                ZN_REPORT("Map already contains key %s! Memleak will occur!", text != nullptr ? text : "");
            }
            SetAt(node->m_Key, node->m_Value);
        }
    }

    unsigned int m_Count = 0;
    [[no_unique_address]] A m_Allocator;
};

// The usual map from FixedString to V; FixedStringMap<V> map(kSerializerBucketCount) for the
// serializer's table.
template <typename V>
using FixedStringMap = FixedStringMapBase<ObjectAllocator, DummyResetFunctor<V>, V>;

}  // namespace zn
