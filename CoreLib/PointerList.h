// PointerList.h: a doubly linked list of pointers. The list owns its nodes, not what the pointers
// point at; an iterator is a node pointer that the caller holds.
#pragma once

#include "CoreLib/ElementPolicies.h"
#include "CoreLib/Report.h"

#include <type_traits>

namespace zn {

template <typename T>
struct PointerListNode {
    PointerListNode* m_Next;
    PointerListNode* m_Previous;
    T m_Value;
};

// A is the node allocator (ObjectAllocator), R the reset policy applied to values the list drops
// without handing them back, T the stored value.
template <typename A, typename R, typename T>
class PointerListBase {
public:
    using Node = PointerListNode<T>;
    using Iterator = Node*;

    PointerListBase() = default;
    PointerListBase(const PointerListBase&) = delete;
    PointerListBase& operator=(const PointerListBase&) = delete;
    ~PointerListBase() { RemoveAll(); }

    unsigned int GetCount() const { return m_Count; }
    bool IsEmpty() const { return m_Count == 0; }
    Iterator GetHeadPosition() const { return m_Head; }
    Iterator GetTailPosition() const { return m_Tail; }

    // A new first node; its iterator, or null when no node could be had.
    Iterator AddHead(const T& value) {
        Node* node = MakeNode(m_Head, nullptr, value);
        if (node == nullptr) {
            return nullptr;
        }
        if (m_Head != nullptr) {
            m_Head->m_Previous = node;
        } else {
            m_Tail = node;
        }
        m_Head = node;
        ++m_Count;
        return node;
    }
    // A new last node; its iterator, or null when no node could be had.
    Iterator AddTail(const T& value) {
        Node* node = MakeNode(nullptr, m_Tail, value);
        if (node == nullptr) {
            return nullptr;
        }
        if (m_Tail != nullptr) {
            m_Tail->m_Next = node;
        } else {
            m_Head = node;
        }
        m_Tail = node;
        ++m_Count;
        return node;
    }
    // A new node in front of position; a null position is reported and adds nothing.
    Iterator InsertBefore(Iterator position, const T& value) {
        if (position == nullptr) {
            ZN_REPORT("Iterator cannot be NULL");
            return nullptr;
        }
        Node* node = MakeNode(position, position->m_Previous, value);
        if (node == nullptr) {
            return nullptr;
        }
        if (position->m_Previous != nullptr) {
            position->m_Previous->m_Next = node;
        } else {
            m_Head = node;
        }
        position->m_Previous = node;
        ++m_Count;
        return node;
    }

    // The value at position; a null position is reported and gives an empty value.
    T& Get(Iterator position) {
        if (position == nullptr) {
            ZN_REPORT("Iterator cannot be NULL");
            return detail::SpareElement<T>();
        }
        return position->m_Value;
    }
    // The address of the value at position, which moves on to the next node; a null position is
    // reported and gives null.
    T* GetNext(Iterator& position) {
        if (position == nullptr) {
            ZN_REPORT("Iterator cannot be NULL");
            return nullptr;
        }
        T* value = &position->m_Value;
        position = position->m_Next;
        return value;
    }
    // As GetNext, moving to the previous node.
    T* GetPrevious(Iterator& position) {
        if (position == nullptr) {
            ZN_REPORT("Iterator cannot be NULL");
            return nullptr;
        }
        T* value = &position->m_Value;
        position = position->m_Previous;
        return value;
    }
    // The first node holding value, or null.
    Iterator Find(const T& value) const {
        for (Node* node = m_Head; node != nullptr; node = node->m_Next) {
            if (node->m_Value == value) {
                return node;
            }
        }
        return nullptr;
    }

    // Unlinks the first node and returns its value; an empty list is reported and gives null.
    T RemoveHead() {
        if (m_Head == nullptr) {
            ZN_REPORT("Head cannot be NULL");
            return T();
        }
        Node* node = m_Head;
        m_Head = node->m_Next;
        if (m_Head != nullptr) {
            m_Head->m_Previous = nullptr;
        } else {
            m_Tail = nullptr;
        }
        return Release(node);
    }
    // Unlinks the last node and returns its value; an empty list is reported and gives null.
    T RemoveTail() {
        if (m_Tail == nullptr) {
            ZN_REPORT("Tail cannot be NULL");
            return T();
        }
        Node* node = m_Tail;
        m_Tail = node->m_Previous;
        if (m_Tail != nullptr) {
            m_Tail->m_Next = nullptr;
        } else {
            m_Head = nullptr;
        }
        return Release(node);
    }
    // Unlinks the node at position, moves position to the next node and returns the value; a
    // null position is reported and gives null.
    T RemovePos(Iterator& position) {
        if (position == nullptr) {
            ZN_REPORT("Iterator cannot be NULL");
            return T();
        }
        if (position == m_Head) {
            position = position->m_Next;
            return RemoveHead();
        }
        if (position == m_Tail) {
            position = nullptr;
            return RemoveTail();
        }
        Node* node = position;
        node->m_Previous->m_Next = node->m_Next;
        node->m_Next->m_Previous = node->m_Previous;
        position = node->m_Next;
        return Release(node);
    }
    // Frees every node; the values are passed to the reset policy first.
    void RemoveAll() {
        R reset;
        while (m_Head != nullptr) {
            Node* node = m_Head;
            m_Head = node->m_Next;
            reset(node->m_Value);
            m_Allocator.Delete(node);
        }
        m_Tail = nullptr;
        m_Count = 0;
    }

    // Checks that the links run both ways between head and tail and that the count matches them.
    bool Validate() const {
        unsigned int forward = 0;
        const Node* previous = nullptr;
        for (const Node* node = m_Head; node != nullptr; node = node->m_Next) {
            if (node->m_Previous != previous || ++forward > m_Count) {
                return false;
            }
            previous = node;
        }
        return previous == m_Tail && forward == m_Count && (m_Head == nullptr) == (m_Count == 0);
    }

private:
    Node* MakeNode(Node* next, Node* previous, const T& value) {
        Node* node = m_Allocator.template New<Node>(next, previous, value);
        if (node == nullptr) {
            ZN_REPORT("Allocation returned NULL!");
        }
        return node;
    }
    T Release(Node* node) {
        T value = node->m_Value;
        m_Allocator.Delete(node);
        --m_Count;
        return value;
    }

    [[no_unique_address]] A m_Allocator;
    Node* m_Head = nullptr;
    Node* m_Tail = nullptr;
    unsigned int m_Count = 0;
};

// The list of pointers to T. PointerList<Widget> and PointerList<Widget*> both hold Widget*.
template <typename T>
using PointerList =
    PointerListBase<ObjectAllocator, DummyResetFunctor<std::remove_pointer_t<T>*>, std::remove_pointer_t<T>*>;

}  // namespace zn
