// FunctionName.h: the qualified name of the enclosing function ("zn::PackedFile::Load"), made at
// compile time from the compiler's full signature, for the source location of reports.
#pragma once

#include <cstddef>

namespace zn::detail {

struct NameRange {
    size_t begin;
    size_t end;
};

constexpr bool MatchesAt(const char* text, size_t at, const char* word) {
    for (size_t i = 0; word[i] != '\0'; ++i) {
        if (text[at + i] != word[i]) {
            return false;
        }
    }
    return true;
}

// End of the signature without a "[with T = ...]" suffix.
constexpr size_t WithoutTemplateArguments(const char* signature, size_t length) {
    if (length > 0 && signature[length - 1] == ']') {
        for (size_t i = length; i >= 7; --i) {
            if (MatchesAt(signature, i - 7, " [with ")) {
                return i - 7;
            }
        }
    }
    return length;
}

// End of the signature's parameter list, behind trailing qualifiers such as "const".
constexpr size_t ParameterListEnd(const char* signature, size_t end) {
    while (end > 0 && signature[end - 1] != ')') {
        --end;
    }
    return end;
}

// Index of the '(' that opens the parameter list closed at end - 1.
constexpr size_t ParameterListStart(const char* signature, size_t end) {
    int depth = 0;
    for (size_t i = end; i > 0; --i) {
        char c = signature[i - 1];
        if (c == ')') {
            ++depth;
        } else if (c == '(' && --depth == 0) {
            return i - 1;
        }
    }
    return end;
}

// Start of the name that ends at nameEnd: back to the space that separates it from the return
// type, skipping spaces inside template arguments and the one of "operator new".
constexpr size_t NameStart(const char* signature, size_t nameEnd) {
    int depth = 0;
    for (size_t i = nameEnd; i > 0; --i) {
        char c = signature[i - 1];
        if (c == '>' || c == ')') {
            ++depth;
        } else if ((c == '<' || c == '(') && depth > 0) {
            --depth;
        } else if (c == ' ' && depth == 0) {
            bool afterOperator = i >= 9 && MatchesAt(signature, i - 9, "operator");
            if (!afterOperator) {
                return i;
            }
        }
    }
    return 0;
}

constexpr NameRange QualifiedNameRange(const char* signature, size_t length) {
    size_t stripped = WithoutTemplateArguments(signature, length);
    // A lambda's signature ends in its own name, "f()::<lambda()>": keep that whole.
    if (stripped > 0 && signature[stripped - 1] == '>') {
        return {NameStart(signature, stripped), stripped};
    }
    size_t end = ParameterListEnd(signature, stripped);
    if (end == 0) {
        return {0, stripped};
    }
    size_t nameEnd = ParameterListStart(signature, end);
    return {NameStart(signature, nameEnd), nameEnd};
}

template <size_t N>
struct FunctionName {
    char text[N] = {};
};

template <size_t N>
constexpr FunctionName<N> MakeFunctionName(const char (&signature)[N]) {
    FunctionName<N> name;
    NameRange range = QualifiedNameRange(signature, N - 1);
    for (size_t i = range.begin; i < range.end; ++i) {
        name.text[i - range.begin] = signature[i];
    }
    return name;
}

}  // namespace zn::detail

// The enclosing function's qualified name as a string literal with static storage.
#define ZN_FUNCTION_NAME                                                                               \
    (__extension__({                                                                                   \
        static constexpr auto zn_function_name_ = ::zn::detail::MakeFunctionName(__PRETTY_FUNCTION__); \
        zn_function_name_.text;                                                                        \
    }))
