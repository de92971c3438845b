// CountingElement.h: an element type that counts its constructions, copies, assignments and
// destructions, for tests of containers that build and destroy their elements.
#pragma once

namespace zn::test {

// What CountingElements did since the last ResetCounts.
struct CountingElementCounts {
    int defaultConstructions = 0;
    int valueConstructions = 0;
    int copyConstructions = 0;
    int assignments = 0;
    int destructions = 0;

    int Constructions() const { return defaultConstructions + valueConstructions + copyConstructions; }
    // Elements constructed and not yet destroyed.
    int Live() const { return Constructions() - destructions; }
};

class CountingElement {
public:
    using Counts = CountingElementCounts;

    CountingElement() { ++s_Counts.defaultConstructions; }
    explicit CountingElement(int value) : m_Value(value) { ++s_Counts.valueConstructions; }
    CountingElement(const CountingElement& other) : m_Value(other.m_Value) { ++s_Counts.copyConstructions; }
    CountingElement& operator=(const CountingElement& other) {
        m_Value = other.m_Value;
        ++s_Counts.assignments;
        return *this;
    }
    ~CountingElement() {
        ++s_Counts.destructions;
        m_Value = kDestroyedValue;
    }

    int Value() const { return m_Value; }
    bool operator==(const CountingElement& other) const { return m_Value == other.m_Value; }
    bool operator<(const CountingElement& other) const { return m_Value < other.m_Value; }

    static const Counts& GetCounts() { return s_Counts; }
    static void ResetCounts() { s_Counts = Counts{}; }

    // What a destroyed element holds, so that a use after destruction shows.
    static constexpr int kDestroyedValue = -0x0DEAD;

private:
    // The empty element holds 0.
    int m_Value = 0;
    static inline Counts s_Counts{};
};

}  // namespace zn::test
