// Map.h: a chained hash map with a bucket count fixed at construction, for integer and enumeration
// keys. A key's bucket is the key modulo the bucket count; the newest entry heads its chain.
#pragma once

#include "CoreLib/ChainedTable.h"
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
class Map : public ChainedTable<Map<K, V, H, C, I>, MapNode<K, V>, K, V> {
    using Table = ChainedTable<Map<K, V, H, C, I>, MapNode<K, V>, K, V>;
    friend Table;

public:
    using Node = MapNode<K, V>;
    using typename Table::Position;

    static constexpr unsigned int kDefaultBucketCount = 37;

    // An empty map of bucketCount chains (0 is taken as 1).
    explicit Map(unsigned int bucketCount = kDefaultBucketCount) : Table(bucketCount) {
        size_t bytes = sizeof(Node*) * this->m_BucketCount;
        this->m_Buckets = reinterpret_cast<Node**>(I::Allocate(static_cast<unsigned int>(bytes)));
        if (this->m_Buckets == nullptr) {
            ZN_REPORT("Hashtable is not valid!");
            return;
        }
        std::memset(static_cast<void*>(this->m_Buckets), 0, bytes);
    }
    // A map of other's bucket count holding its entries.
    Map(const Map& other) : Map(other.m_BucketCount) { AddEntriesOf(other); }
    // Replaces the entries with other's; the bucket count stays.
    Map& operator=(const Map& other) {
        if (this != &other) {
            this->RemoveAll();
            AddEntriesOf(other);
        }
        return *this;
    }
    ~Map() {
        this->RemoveAll();
        I::Free(reinterpret_cast<char*>(this->m_Buckets));
    }

    // The number of entries, counted along the chains.
    unsigned int GetCount() const {
        unsigned int count = 0;
        for (const Node* node = this->GetStartPosition(); node != nullptr; node = this->NextNode(node)) {
            ++count;
        }
        return count;
    }
    bool IsEmpty() const { return this->GetStartPosition() == nullptr; }

    // Replaces the value of key, or adds the entry in front of its bucket's chain.
    void SetAt(const K& key, const V& value) {
        if (this->m_Buckets == nullptr) {
            ZN_REPORT("Hashtable is not valid!");
            return;
        }
        if (Node* found = this->FindNode(key)) {
            found->m_Value = value;
            return;
        }
        Node*& chain = this->m_Buckets[BucketOf(key)];
        Node* node = ObjectAllocator::New<Node>(chain, key, value);
        if (node == nullptr) {
            ZN_REPORT("New item should not be NULL!");
            return;
        }
        chain = node;
    }

    // Checks that every node sits in its key's bucket and that keys are unique.
    bool Validate() const { return this->CheckChains() >= 0; }

private:
    unsigned int BucketOf(const K& key) const { return H::KeyToHashIndex(key, this->m_BucketCount); }
    static bool KeysEqual(const K& left, const K& right) { return C::Equal(left, right); }
    void DropNode(Node* node) { ObjectAllocator::Delete(node); }
    void AddEntriesOf(const Map& other) {
        for (const Node* node = other.GetStartPosition(); node != nullptr; node = other.NextNode(node)) {
            SetAt(node->m_Key, node->m_Value);
        }
    }
};

}  // namespace zn
