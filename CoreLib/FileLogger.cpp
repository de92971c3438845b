// FileLogger.cpp: the text and XML file loggers.
#include "CoreLib/FileLogger.h"

#include "CoreLib/BoundedFormat.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace zn {

namespace {
const char* const kXmlHeader =
    "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\n"
    "<?xml-stylesheet type=\"text/xsl\" href=\"../../../../ZNTools/XMLLogger/style.xsl\" ?>\n"
    "<ZNFramework>\n";
const char* const kXmlClosingTag = "</ZNFramework>";

const char* XmlTypeOf(ELogChannel channel) {
    switch (channel) {
        case LogInfo:
            return "info</type>\n";
        case LogWarning:
            return "warning</type>\n";
        case LogError:
            return "error</type>\n";
        case LogAssertArtist:
            return "assertartist</type>\n";
        default:
            return "assertprogrammer</type>\n";
    }
}

wchar_t* CopyName(const wchar_t* fileName) {
    size_t bytes = (std::wcslen(fileName) + 1) * sizeof(wchar_t);
    auto* copy = static_cast<wchar_t*>(std::malloc(bytes));
    if (copy != nullptr) {
        std::memcpy(copy, fileName, bytes);
    }
    return copy;
}
}  // namespace

FileLogger::FileLogger(const wchar_t* fileName, bool flag)
    : m_FileName(CopyName(fileName)),
      m_Flag(flag),
      m_Line{},
      m_Writer(fileName, CompressionType_None, L"w") {}

FileLogger::~FileLogger() {
    std::free(m_FileName);
}

void FileLogger::ProcessMessage(ELogChannel, const char* time, const char* message, const char* file,
                                int line, const char* function) {
    if (!m_Writer.IsLoaded()) {
        return;
    }
    m_Line[0] = '\0';
    unsigned int room = kLineCapacity;
    // A report from here would come straight back to this logger: an overlong line is cut quietly.
    znsnprintf_s(m_Line, room, "[%s][%s %d %s]: %s\n", time, file, line, function, message);
    m_Writer.Write(m_Line, 1, static_cast<unsigned int>(std::strlen(m_Line)));
}

void FileLogger::FlushLog() {
    if (m_Writer.IsLoaded()) {
        m_Writer.Flush();
    }
}

XmlFileLogger::XmlFileLogger() : m_Writer(L"log.xml", CompressionType_None, L"w") {
    if (!m_Writer.IsLoaded()) {
        return;
    }
    WriteText(kXmlHeader);
    Close();
}

void XmlFileLogger::WriteText(const char* text) {
    m_Writer.Write(text, 1, static_cast<unsigned int>(std::strlen(text)));
}

void XmlFileLogger::Close() {
    m_ClosingTagPosition = static_cast<unsigned int>(m_Writer.Tell());
    WriteText(kXmlClosingTag);
}

void XmlFileLogger::ProcessMessage(ELogChannel channel, const char* time, const char* message,
                                   const char* file, int line, const char* function) {
    if (!m_Writer.IsLoaded()) {
        return;
    }
    m_Writer.Seek(static_cast<int>(m_ClosingTagPosition), SEEKPOS_START);
    char number[16];
    std::snprintf(number, sizeof(number), "%d", line);
    const char* const pieces[] = {"\t<log>\n\t\t<type>",
                                  XmlTypeOf(channel),
                                  "\t\t<timestamp>",
                                  time,
                                  "</timestamp>\n",
                                  "\t\t<file>",
                                  file,
                                  "</file>\n",
                                  "\t\t<linenumber>",
                                  number,
                                  "</linenumber>\n",
                                  "\t\t<function>",
                                  function,
                                  "</function>\n",
                                  "\t\t<message><![CDATA[",
                                  message,
                                  "]]></message>\n",
                                  "\t</log>\n"};
    for (const char* piece : pieces) {
        WriteText(piece);
    }
    Close();
}

void XmlFileLogger::FlushLog() {
    if (m_Writer.IsLoaded()) {
        m_Writer.Flush();
    }
}

}  // namespace zn
