#include "tests/support/StderrCapture.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace zn::test {

StderrCapture::StderrCapture() {
    std::fflush(stderr);
    char name[] = "/tmp/corelib-stderr-XXXXXX";
    m_CaptureDescriptor = mkstemp(name);
    unlink(name);
    m_SavedDescriptor = dup(STDERR_FILENO);
    dup2(m_CaptureDescriptor, STDERR_FILENO);
}

StderrCapture::~StderrCapture() {
    std::fflush(stderr);
    dup2(m_SavedDescriptor, STDERR_FILENO);
    close(m_SavedDescriptor);
    close(m_CaptureDescriptor);
}

std::string StderrCapture::Text() const {
    std::fflush(stderr);
    std::string text;
    char chunk[4096];
    off_t offset = 0;
    ssize_t got;
    while ((got = pread(m_CaptureDescriptor, chunk, sizeof(chunk), offset)) > 0) {
        text.append(chunk, static_cast<size_t>(got));
        offset += got;
    }
    return text;
}

}  // namespace zn::test
