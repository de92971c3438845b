// ArgumentString.h: a command line split on spaces, with lookups of "name value" pairs.
#pragma once

#include "CoreLib/STDString.h"
#include "CoreLib/TrackedObject.h"

namespace zn {

class ArgumentString : public TrackedObject<ArgumentString> {
public:
    // Splits commandLine on single spaces (a run of spaces leaves empty tokens); null gives no
    // tokens. The second argument is not used.
    ArgumentString(char* commandLine, int unused);
    ~ArgumentString();
    ArgumentString(const ArgumentString&) = delete;
    ArgumentString& operator=(const ArgumentString&) = delete;

    // Finds the first token equal to name without case. True when found; value then receives the
    // token after it, or, when name is the last token, stays as it was and the absence is reported.
    bool GetValue(const char* name, STDString& value);

    int GetCount() const { return m_Count; }
    // The token at index, or null outside the line.
    const char* GetToken(int index) const {
        return index >= 0 && index < m_Count ? m_Tokens[index] : nullptr;
    }

private:
    char** m_Tokens = nullptr;
    int m_Count = 0;
};

}  // namespace zn
