// ChainedTable.h: the chain walking shared by the library's hash maps: lookup, removal, iteration
// in bucket order and the self-check. The maps own the bucket array and the nodes; they supply how
// a key finds its bucket, how keys compare and how a node is dropped.
#pragma once

namespace zn {

// Derived provides unsigned int BucketOf(const K&) const, static bool KeysEqual(const K&, const K&)
// and void DropNode(Node*). Node has m_Next, m_Key and m_Value.
template <typename Derived, typename Node, typename K, typename V>
class ChainedTable {
public:
    // A place in the iteration: the node that comes next, or null at the end.
    using Position = const Node*;

    unsigned int GetBucketCount() const { return m_BucketCount; }

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
        for (Node** link = &m_Buckets[Self().BucketOf(key)]; *link != nullptr; link = &(*link)->m_Next) {
            Node* node = *link;
            if (Derived::KeysEqual(node->m_Key, key)) {
                *link = node->m_Next;
                Self().DropNode(node);
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
                Self().DropNode(node);
            }
        }
    }

    // Iteration in bucket order, each chain from its front (the newest entry first).
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

protected:
    explicit ChainedTable(unsigned int bucketCount) : m_BucketCount(bucketCount == 0 ? 1 : bucketCount) {}
    ChainedTable(const ChainedTable&) = delete;
    ChainedTable& operator=(const ChainedTable&) = delete;
    ~ChainedTable() = default;

    Node* FindNode(const K& key) const {
        if (m_Buckets == nullptr) {
            return nullptr;
        }
        for (Node* node = m_Buckets[Self().BucketOf(key)]; node != nullptr; node = node->m_Next) {
            if (Derived::KeysEqual(node->m_Key, key)) {
                return node;
            }
        }
        return nullptr;
    }
    const Node* NextNode(const Node* node) const {
        return node->m_Next != nullptr ? node->m_Next : FirstNodeFrom(Self().BucketOf(node->m_Key) + 1);
    }
    // Counts the entries, or returns -1 when a node sits outside its key's bucket or a key repeats.
    long CheckChains() const {
        long entries = 0;
        for (unsigned int bucket = 0; m_Buckets != nullptr && bucket < m_BucketCount; ++bucket) {
            for (const Node* node = m_Buckets[bucket]; node != nullptr; node = node->m_Next, ++entries) {
                if (Self().BucketOf(node->m_Key) != bucket) {
                    return -1;
                }
                for (const Node* other = node->m_Next; other != nullptr; other = other->m_Next) {
                    if (Derived::KeysEqual(other->m_Key, node->m_Key)) {
                        return -1;
                    }
                }
            }
        }
        return entries;
    }

    unsigned int m_BucketCount;
    // m_BucketCount chain heads; null only when the heap had no memory.
    Node** m_Buckets = nullptr;

private:
    const Node* FirstNodeFrom(unsigned int bucket) const {
        for (; m_Buckets != nullptr && bucket < m_BucketCount; ++bucket) {
            if (m_Buckets[bucket] != nullptr) {
                return m_Buckets[bucket];
            }
        }
        return nullptr;
    }
    Derived& Self() { return static_cast<Derived&>(*this); }
    const Derived& Self() const { return static_cast<const Derived&>(*this); }
};

}  // namespace zn
