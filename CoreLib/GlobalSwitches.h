// GlobalSwitches.h: the two records of settings that belong to the host, and the library's two
// pointers to them. The library never creates a record and never assigns a pointer: the host
// does both (see docs/strings-standard.md), and either pointer may stay null.
#pragma once

#include "CoreLib/STDString.h"
#include "CoreLib/TrackedObject.h"

namespace zn {

struct GlobalSwitches : public TrackedObject<GlobalSwitches> {
    GlobalSwitches();
    GlobalSwitches(const GlobalSwitches& other);
    GlobalSwitches& operator=(const GlobalSwitches& other);
    virtual ~GlobalSwitches();

    // Host-defined; not read by this library. All false except index 17.
    bool flags[19];
    // Host-defined; not read by this library.
    float distances[4];
    // When true, file and XML loads log their duration on LogInfo.
    bool logLoadTimes;
    // When true, binary serializer saves and loads and XML saves log their duration on LogInfo.
    bool logSerializerTimes;
    // Host-defined; not read by this library.
    float frameRate;
    bool moreFlags[6];
    // The folder under "Localization/" that path resolution appends for the localized root.
    STDWString languageFolder;
    // When true (or without a record), a missing translation is shown wrapped in "?{" and "}?".
    bool markMissingTranslations;
    unsigned short reserved16;
    bool enabledFlag;
    unsigned int values[3];
    bool flagPair[2];
    STDString text;
    bool lastFlags[3];
};

// All fields are the host's; this library gives them no meaning and reads none of them.
struct GraphicSettings : public TrackedObject<GraphicSettings> {
    GraphicSettings();
    GraphicSettings(const GraphicSettings& other);
    GraphicSettings& operator=(const GraphicSettings& other);
    virtual ~GraphicSettings();

    bool flagA;
    bool flagB;
    unsigned int valueA;
    unsigned int valueB;
    bool flagC;
    unsigned int valueC;
    float scale;
    unsigned int valueD;
    unsigned int valueE;
    bool flagD;
    unsigned int valueF;
    unsigned int valueG;
    unsigned int valueH;
    bool options[9];
    unsigned int valueI;
    bool flagE;
    bool flagF;
    unsigned short valueJ;
};

// The record type under a name that the pointer below does not hide. Where the pointer is in
// scope, "GraphicSettings" alone names the pointer; name the type as GraphicSettingsRecord or
// with the elaborated specifier "struct zn::GraphicSettings".
using GraphicSettingsRecord = GraphicSettings;

// The host's records; null until the host assigns them.
extern GlobalSwitches* Global;
extern GraphicSettingsRecord* GraphicSettings;

}  // namespace zn
