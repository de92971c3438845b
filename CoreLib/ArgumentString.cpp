// ArgumentString.cpp: the tokens of a command line and the lookup of a named value.
#include "CoreLib/ArgumentString.h"

#include "CoreLib/Report.h"
#include "CoreLib/StringHelpers.h"
#include "CoreLib/StringTokenizer.h"

namespace zn {

namespace {
// _stricmp(left, right) == 0 with ASCII case folding.
bool EqualsNoCase(const char* left, const char* right) {
    for (; AsciiToLower(*left) == AsciiToLower(*right); ++left, ++right) {
        if (*left == '\0') {
            return true;
        }
    }
    return false;
}
}  // namespace

ArgumentString::ArgumentString(char* commandLine, int) {
    if (commandLine != nullptr) {
        StringTokenizer::SplitString(STDString(commandLine), " ", m_Tokens, m_Count);
    }
}

ArgumentString::~ArgumentString() {
    StringTokenizer::FreeSplitString(m_Tokens, m_Count);
}

bool ArgumentString::GetValue(const char* name, STDString& value) {
    if (name == nullptr) {
        return false;
    }
    for (int index = 0; index < m_Count; ++index) {
        if (!EqualsNoCase(m_Tokens[index], name)) {
            continue;
        }
        if (index + 1 < m_Count) {
            value = m_Tokens[index + 1];
        } else {
            ZN_LOG(LogError, "Expected value argument after argument '%s'", name);
        }
        return true;
    }
    return false;
}

}  // namespace zn
