// StderrCapture.h: redirects standard error (the debug output) into a file for the scope.
#pragma once

#include <string>

namespace zn::test {

class StderrCapture {
public:
    StderrCapture();
    ~StderrCapture();
    StderrCapture(const StderrCapture&) = delete;
    StderrCapture& operator=(const StderrCapture&) = delete;

    // Everything written to standard error since construction.
    std::string Text() const;

private:
    int m_SavedDescriptor;
    int m_CaptureDescriptor;
};

}  // namespace zn::test
