// The contract between the host and a portal: the interfaces each side calls,
// the records that cross between them, and the exported factory. The order of
// the virtual operations is part of the contract, since the host was built
// against it; reserved positions keep that order and are never called here.
#pragma once

#include <list>
#include <vector>

#include "mosaq/support.h"

namespace MOSAQ {

// Key/value properties of an extension. The bodies are the stubs every
// extension inherits: no keys, no values.
class MOSAQ_EXPORT IProperties {
public:
    virtual ~IProperties() = default;
    virtual StringList getKeys() { return {}; }
    virtual String getValue(const String&) { return {}; }
    virtual String getValueReserved(const String&) { return {}; }
    virtual void reserved1() {}
    virtual void reserved2() {}
    virtual void reserved3() {}
    virtual void reserved4() {}
};

// Base of every extension of the host.
class MOSAQ_EXPORT IExtension {
public:
    virtual ~IExtension() = default;
    virtual String getType() = 0;
    virtual String getName() = 0;
    virtual IProperties& getProperties() = 0;
    // The view of the object for a kind of interface; null for kinds it lacks.
    virtual void* getInterface(int kind) = 0;
};

namespace Portals {

// The interface kind under which an extension offers IPortal.
inline constexpr int kPortalInterfaceKind = 2;

// One property of a tag or one row of a file's description. kind is empty for
// a plain attribute, "Prop" or "PortalData" for one from a tag's child element.
struct PropertyItem {
    String name;
    String value;
    String kind;
    bool operator==(const PropertyItem&) const = default;
};

// One tag: where the tagged item is, and which parameter or response it binds.
struct TagData {
    StringList path;
    String paramName;
    String paramType;
    std::list<PropertyItem> properties;
    bool operator==(const TagData&) const = default;
};

// One node of the tree that shows a user what a file holds.
struct ItemGroup {
    String name;
    String itemKind;
    std::list<PropertyItem> attributes;
    int flag = 0;
    std::list<ItemGroup> children;
    std::list<PropertyItem> items;
    bool operator==(const ItemGroup&) const = default;
};

// What goes to the host for one response.
struct ResponseValues {
    std::vector<double> numbers;
    StringList strings;
};

// The context of the current study, found through IPortalHost::findExtension
// with the type word "Portal".
class MOSAQ_EXPORT IPortalContext : public IExtension {
public:
    // The current design's value of a parameter, formatted by `format`.
    virtual String getDesignValue(const String& paramType, const String& paramName,
                                  const String& source, const String& format,
                                  String& errors) = 0;
    // Fills `values` with the property group `key` of an analysis.
    virtual void getAnalysisProperties(const String& analysisName, const String& key,
                                       StringStringMap& values) = 0;
    // Takes the values of a response for a case, or its failure
    // ("errorInCall" = "true" with a "message" in caseInfo).
    virtual void reportResponse(const String& name, const StringStringMap& caseInfo,
                                const ResponseValues& values) = 0;
};

// The host as a portal sees it.
class MOSAQ_EXPORT IPortalHost {
public:
    virtual ~IPortalHost() = default;
    // Shows a text; level 2 error, 4 warning, 8 note, 16 solver output.
    virtual void logMessage(const String& text, const String& analysisName, int evalId,
                            int level) = 0;
    virtual void reportProgress(int current, int total, const String& text, int flag) = 0;
    // Fills `folder` with the working folder for a substitution map.
    virtual void resolveFolder(const String& name, StringList& extra, String& folder,
                               const StringStringMap& substitutions) = 0;
    virtual String getInstallFolder() = 0;
    virtual void hostReserved1() {}
    virtual String getSetting(const String& key, const String& defaultValue) = 0;
    virtual void hostReserved2() {}
    virtual IExtension* findExtension(const String& type) = 0;
};

// The portal as the host sees it. `opaque` arguments are the host's own; they
// are handed on and never looked at.
class MOSAQ_EXPORT IPortal : public IExtension {
public:
    String getType() override { return "Portal"; }
    // One shared, immutable set with no properties. Defined here so that a
    // host that only loads the plug-in still has the interface's type info.
    IProperties& getProperties() override {
        static IProperties none;
        return none;
    }

    virtual bool parseInputFile(const String& path, void* opaque, std::list<ItemGroup>& groups,
                                String& errors) = 0;
    virtual bool parseOutputFile(const String& path, void* opaque, std::list<ItemGroup>& groups,
                                 String& errors) = 0;
    virtual bool reservedQuery1() { return false; }
    virtual bool writeInputTagFile(const String& fileName, const std::list<TagData>& tags,
                                   const StringStringMap& data, StringStringMap& outputs,
                                   String& errors) = 0;
    virtual bool writeOutputTagFile(const String& fileName, const std::list<TagData>& tags,
                                    const StringStringMap& data, StringStringMap& outputs,
                                    String& errors) = 0;
    // 0 when the tag file was read, negative when it belongs to another reader.
    virtual int readInputTags(const String&, const StringStringMap&, std::list<TagData>&,
                              StringStringMap&, String&) { return -1; }
    virtual int readOutputTags(const String&, const StringStringMap&, std::list<TagData>&,
                               StringStringMap&, String&) { return -1; }
    virtual int getBatchMode(const StringStringMap&) { return 0; }
    virtual void reservedHook() {}
    virtual bool processInputs(const StringStringMap&, void*, String&) { return true; }
    virtual bool reservedQuery2() { return false; }
    virtual bool runCheck(const String&, const StringStringMap&, bool&, StringStringMap&) {
        return false;
    }
    virtual bool processOutputs(const StringStringMap&, void*, String&) { return true; }
    virtual void finishRun(void*, void*) {}
    virtual bool reservedQuery3() { return false; }
    virtual bool reservedQuery4() { return false; }
    virtual bool reservedQuery5() { return false; }
    virtual bool reservedQuery6() { return false; }
    virtual bool reservedQuery7() { return false; }
};

}  // namespace Portals
}  // namespace MOSAQ

// The plug-in's one export. Gives a new portal for a known name (compared
// without regard to case), owned by the caller; null for any other name.
extern "C" MOSAQ_EXPORT MOSAQ::Portals::IPortal* portalFactory(
    MOSAQ::Portals::IPortalHost* host, const MOSAQ::String& name, MOSAQ::IProperties* properties);

// The factory's type, for a host that finds it with dlsym.
using PortalFactoryFn = MOSAQ::Portals::IPortal* (*)(MOSAQ::Portals::IPortalHost*,
                                                    const MOSAQ::String&, MOSAQ::IProperties*);
