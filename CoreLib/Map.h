// Map.h: a chained hash map with a bucket count fixed at construction, for integer and enumeration
// keys. A key's bucket is the key modulo the bucket count; the newest entry heads its chain.
#pragma once

#include "CoreLib/ElementPolicies.h"
#include "CoreLib/Report.h"

#include <cstring>
#include <type_traits>

namespace zn {

// The hash policy of Map: the key, as an unsigned number of its own width, modulo the bucket count.
template <typename K>
class MapHashFunctor {
public:
    static unsigned int KeyToHashIndex(const K& key, unsigned int bucketCount) {
        return static_cast<unsigned int>(static_cast<Unsigned>(key) % bucketCount);
    }

private:
    template <typename U, bool = std::is_enum_v<U>>
    struct Underlying {
        using Type = U;
    };
    template <typename U>
    struct Underlying<U, true> {
        using Type = std::underlying_type_t<U>;
    };
    using Unsigned = std::make_unsigned_t<typename Underlying<K>::Type>;
};

// The key comparison of Map: the key's own operator.
template <typename K>
class MapCompareFunctor {
public:
    static bool Equal(const K& left, const K& right) { return left == right; }
};

template <typename K, typename V>
struct MapNode {
    MapNode* m_Next;
    K m_Key;
    V m_Value;
};

// H hashes keys to buckets, C compares keys, I provides the bucket array's bytes.
template <typename K, typename V, typename H = MapHashFunctor<K>, typename C = MapCompareFunctor<K>,
          typename I = MallocInterface<char>>
class Map {
public:
    using Node = MapNode<K, V>;
    // A place in the iteration: the node that comes next, or null at the end.
    using Position = const Node*;

    static constexpr unsigned int kDefaultBucketCount = 37;

    // An empty map of bucketCount chains (0 is taken as 1).
    explicit Map(unsigned int bucketCount = kDefaultBucketCount)
        : m_BucketCount(bucketCount == 0 ? 1 : bucketCount) {
        size_t bytes = sizeof(Node*) * m_BucketCount;
        m_Buckets = reinterpret_cast<Node**>(I::Allocate(static_cast<unsigned int>(bytes)));
        if (m_Buckets == nullptr) {
            ZN_REPORT("Hashtable is not valid!");
            return;
        }
        std::memset(static_cast<void*>(m_Buckets), 0, bytes);
    }
    // A map of other's bucket count holding its entries.
    Map(const Map& other) : Map(other.m_BucketCount) { AddEntriesOf(other); }
    // Replaces the entries with other's; the bucket count stays.
    Map& operator=(const Map& other) {
        if (this != &other) {
            RemoveAll();
            AddEntriesOf(other);
        }
        return *this;
    }
    ~Map() {
        RemoveAll();
        I::Free(reinterpret_cast<char*>(m_Buckets));
    }

    unsigned int GetBucketCount() const { return m_BucketCount; }
    // The number of entries, counted along the chains.
    unsigned int GetCount() const {
        unsigned int count = 0;
        for (const Node* node = GetStartPosition(); node != nullptr; node = NextNode(node)) {
            ++count;
        }
        return count;
    }
    bool IsEmpty() const { return GetStartPosition() == nullptr; }

    // Replaces the value of key, or adds the entry in front of its bucket's chain.
    void SetAt(const K& key, const V& value) {
        if (m_Buckets == nullptr) {
            ZN_REPORT("Hashtable is not valid!");
            return;
        }
        if (Node* found = FindNode(key)) {
            found->m_Value = value;
            return;
        }
        Node*& chain = m_Buckets[BucketOf(key)];
        Node* node = ObjectAllocator::New<Node>(chain, key, value);
        if (node == nullptr) {
            ZN_REPORT("New item should not be NULL!");
            return;
        }
        chain = node;
    }
    // The value of key, or null.
    V* Find(const K& key) {
        Node* node = FindNode(key);
        return node != nullptr ? &node->m_Value : nullptr;
    }
    const V* Find(const K& key) const {
        const Node* node = FindNode(key);
        return node != nullptr ? &node->m_Value : nullptr;
    }
    // Copies the value of key into value; false, with value untouched, when key is not there.
    bool Lookup(const K& key, V& value) const {
        const V* found = Find(key);
        if (found == nullptr) {
            return false;
        }
        value = *found;
        return true;
    }
    bool Contains(const K& key) const { return FindNode(key) != nullptr; }

    // Removes the entry of key; false when there is none.
    bool RemoveKey(const K& key) {
        if (m_Buckets == nullptr) {
            return false;
        }
        for (Node** link = &m_Buckets[BucketOf(key)]; *link != nullptr; link = &(*link)->m_Next) {
            Node* node = *link;
            if (C::Equal(node->m_Key, key)) {
                *link = node->m_Next;
                ObjectAllocator::Delete(node);
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
                ObjectAllocator::Delete(node);
            }
        }
    }

    // Iteration in bucket order, each chain from its front.
    Position GetStartPosition() const { return FirstNodeFrom(0); }
    // Hands out the entry at position and moves position to the next; null position does nothing.
    void GetNextAssoc(Position& position, K& key, V& value) const {
        if (position == nullptr) {
            return;
        }
        key = position->m_Key;
        value = position->m_Value;
        position = NextNode(position);
    }
    // Calls visit(const K& key, V& value) for every entry, in iteration order.
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

    // Checks that every node sits in its key's bucket and that keys are unique.
    bool Validate() const {
        for (unsigned int bucket = 0; m_Buckets != nullptr && bucket < m_BucketCount; ++bucket) {
            for (const Node* node = m_Buckets[bucket]; node != nullptr; node = node->m_Next) {
                if (BucketOf(node->m_Key) != bucket) {
                    return false;
                }
                for (const Node* other = node->m_Next; other != nullptr; other = other->m_Next) {
                    if (C::Equal(other->m_Key, node->m_Key)) {
                        return false;
                    }
                }
            }
        }
        return true;
    }

private:
    unsigned int BucketOf(const K& key) const { return H::KeyToHashIndex(key, m_BucketCount); }
    Node* FindNode(const K& key) const {
        if (m_Buckets == nullptr) {
            return nullptr;
        }
        for (Node* node = m_Buckets[BucketOf(key)]; node != nullptr; node = node->m_Next) {
            if (C::Equal(node->m_Key, key)) {
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
    void AddEntriesOf(const Map& other) {
        for (const Node* node = other.GetStartPosition(); node != nullptr; node = other.NextNode(node)) {
            SetAt(node->m_Key, node->m_Value);
        }
    }

    unsigned int m_BucketCount;
    // m_BucketCount chain heads; null only when the heap had no memory.
    Node** m_Buckets = nullptr;
};

}  // namespace zn
