// FixedStringMap.h: a chained hash map from FixedString to a value. Keys hash by their interned
// handle, so lookups compare pointers and the order of iteration changes from run to run.
#pragma once

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
class FixedStringMapBase {
public:
    using Node = FixedStringMapNode<V>;
    // A place in the iteration: the node that comes next, or null at the end.
    using Position = const Node*;

    // The bucket count of nearly every map.
    static constexpr unsigned int kDefaultBucketCount = 37;
    // The bucket count of the XML serializer's table of strings.
    static constexpr unsigned int kSerializerBucketCount = 9907;

    // An empty map of bucketCount chains (0 is taken as 1), from "GLOBAL" and cleared.
    explicit FixedStringMapBase(unsigned int bucketCount = kDefaultBucketCount)
        : m_BucketCount(bucketCount == 0 ? 1 : bucketCount) {
        size_t bytes = sizeof(Node*) * m_BucketCount;
        m_Buckets = static_cast<Node**>(MemoryManager::GlobalMalloc(bytes, 0));
        if (m_Buckets == nullptr) {
            ZN_REPORT("Hashtable is not valid!");
            return;
        }
        std::memset(static_cast<void*>(m_Buckets), 0, bytes);
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
        RemoveAll();
        MemoryManager::GlobalFree(m_Buckets, 0);
    }

    unsigned int GetCount() const { return m_Count; }
    bool IsEmpty() const { return m_Count == 0; }
    unsigned int GetBucketCount() const { return m_BucketCount; }

    // Replaces the value of key, or adds the entry in front of its bucket's chain.
    void SetAt(const FixedString& key, const V& value) {
        if (m_Buckets == nullptr) {
            ZN_REPORT("Hashtable is not valid!");
            return;
        }
        if (Node* found = FindNode(key)) {
            found->m_Value = value;
            return;
        }
        Node*& chain = m_Buckets[BucketOf(key)];
        Node* node = m_Allocator.template New<Node>(chain, key, value);
        if (node == nullptr) {
            ZN_REPORT("New item should not be NULL!");
            return;
        }
        chain = node;
        ++m_Count;
    }
    // The value of key, or null.
    V* Find(const FixedString& key) {
        Node* node = FindNode(key);
        return node != nullptr ? &node->m_Value : nullptr;
    }
    const V* Find(const FixedString& key) const {
        const Node* node = FindNode(key);
        return node != nullptr ? &node->m_Value : nullptr;
    }
    // Copies the value of key into value; false, with value untouched, when key is not there.
    bool Lookup(const FixedString& key, V& value) const {
        const V* found = Find(key);
        if (found == nullptr) {
            return false;
        }
        value = *found;
        return true;
    }
    bool Contains(const FixedString& key) const { return FindNode(key) != nullptr; }

    // Removes the entry of key, releasing the key's reference; false when there is none.
    bool RemoveKey(const FixedString& key) {
        if (m_Buckets == nullptr) {
            return false;
        }
        for (Node** link = &m_Buckets[BucketOf(key)]; *link != nullptr; link = &(*link)->m_Next) {
            Node* node = *link;
            if (node->m_Key == key) {
                *link = node->m_Next;
                Drop(node);
                return true;
            }
        }
        return false;
    }
    // Removes every entry; the buckets stay.
    void RemoveAll() {
        for (unsigned int bucket = 0; m_Buckets != nullptr && bucket < m_BucketCount; ++bucket) {
            while (Node* node = m_Buckets[bucket]) {
                m_Buckets[bucket] = node->m_Next;
                Drop(node);
            }
        }
    }

    // Iteration in bucket order, each chain from its front (the newest entry first).
    Position GetStartPosition() const { return FirstNodeFrom(0); }
    // Hands out the entry at position and moves position to the next; null position does nothing.
    void GetNextAssoc(Position& position, FixedString& key, V& value) const {
        if (position == nullptr) {
            return;
        }
        key = position->m_Key;
        value = position->m_Value;
        position = NextNode(position);
    }
    // Calls visit(const FixedString& key, V& value) for every entry, in iteration order.
    template <typename F>
    void ForEach(F&& visit) {
        for (const Node* node = GetStartPosition(); node != nullptr; node = NextNode(node)) {
            visit(node->m_Key, const_cast<Node*>(node)->m_Value);
        }
    }
    template <typename F>
    void ForEach(F&& visit) const {
        for (const Node* node = GetStartPosition(); node != nullptr; node = NextNode(node)) {
            visit(node->m_Key, static_cast<const V&>(node->m_Value));
        }
    }

    // Checks that every node sits in its key's bucket, keys are unique, and the count matches.
    bool Validate() const {
        if (m_Buckets == nullptr) {
            return m_Count == 0;
        }
        unsigned int seen = 0;
        for (unsigned int bucket = 0; bucket < m_BucketCount; ++bucket) {
            for (const Node* node = m_Buckets[bucket]; node != nullptr; node = node->m_Next) {
                if (BucketOf(node->m_Key) != bucket || ++seen > m_Count) {
                    return false;
                }
                for (const Node* other = node->m_Next; other != nullptr; other = other->m_Next) {
                    if (other->m_Key == node->m_Key) {
                        return false;
                    }
                }
            }
        }
        return seen == m_Count;
    }

private:
    unsigned int BucketOf(const FixedString& key) const {
        return FixedStringRefMapHashFunctor::KeyToHashIndex(key, m_BucketCount);
    }
    Node* FindNode(const FixedString& key) const {
        if (m_Buckets == nullptr) {
            return nullptr;
        }
        for (Node* node = m_Buckets[BucketOf(key)]; node != nullptr; node = node->m_Next) {
            if (node->m_Key == key) {
                return node;
            }
        }
        return nullptr;
    }
    const Node* FirstNodeFrom(unsigned int bucket) const {
        for (; m_Buckets != nullptr && bucket < m_BucketCount; ++bucket) {
            if (m_Buckets[bucket] != nullptr) {
                return m_Buckets[bucket];
            }
        }
        return nullptr;
    }
    const Node* NextNode(const Node* node) const {
        return node->m_Next != nullptr ? node->m_Next : FirstNodeFrom(BucketOf(node->m_Key) + 1);
    }
    void Drop(Node* node) {
        R reset;
        reset(node->m_Value);
        m_Allocator.Delete(node);
        --m_Count;
    }
    void AddEntriesOf(const FixedStringMapBase& other) {
        for (const Node* node = other.GetStartPosition(); node != nullptr; node = other.NextNode(node)) {
            if (Contains(node->m_Key)) {
                const char* text = node->m_Key.ToChar();
                ZN_REPORT("Map already contains key %s! Memleak will occur!", text != nullptr ? text : "");
            }
            SetAt(node->m_Key, node->m_Value);
        }
    }

    unsigned int m_BucketCount;
    // m_BucketCount chain heads from "GLOBAL"; null only when the heap had no memory.
    Node** m_Buckets = nullptr;
    unsigned int m_Count = 0;
    [[no_unique_address]] A m_Allocator;
};

// The usual map from FixedString to V; FixedStringMap<V> map(kSerializerBucketCount) for the
// serializer's table.
template <typename V>
using FixedStringMap = FixedStringMapBase<ObjectAllocator, DummyResetFunctor<V>, V>;

}  // namespace zn
