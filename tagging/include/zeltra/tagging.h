// The tagging modules: they write and read tag definition files and, for each
// design, put the design's values into input files and take response values
// out of output files. TaggingImpl is their common base; the portal holds one
// module of each kind and asks them in the order marking, XML, scripting.
//
// A read of a tag definition file answers a negative number when the file
// isn't the module's, so the portal can ask the next one; 0 means it was read.
#pragma once

#include "zeltra/helper_base.h"

namespace MOSAQ::Portals {

class MOSAQ_EXPORT TaggingImpl : public HelperBase {
public:
    explicit TaggingImpl(IPortalHost* host) : HelperBase(host) {}
    ~TaggingImpl() override = default;

    // Writes a tag definition file for the tags of an input (output) file.
    virtual bool writeInputTagging(const String& fileName, const std::list<TagData>& tags,
                                   const StringStringMap& data, StringStringMap& outputs,
                                   String& errors);
    virtual bool writeOutputTagging(const String& fileName, const std::list<TagData>& tags,
                                    const StringStringMap& data, StringStringMap& outputs,
                                    String& errors);
    // Reads a tag definition file; negative when it isn't this module's.
    virtual int readInputTagging(const String& tagFile, const StringStringMap& data,
                                 std::list<TagData>& tags, StringStringMap& outputs,
                                 String& errors);
    virtual int readOutputTagging(const String& tagFile, const StringStringMap& data,
                                  std::list<TagData>& tags, StringStringMap& outputs,
                                  String& errors);
    // Puts the design's values into the input files this module has tag files
    // for; true when there was nothing to do.
    virtual bool tagInputs(const StringStringMap& data, void* opaque, String& errors);
    // Takes the responses out of the output files this module has tag files for.
    virtual bool tagOutputs(const StringStringMap& data, void* opaque, String& errors);
    virtual void finishTagging(void* opaque1, void* opaque2);

protected:
    // Tags of a module tag file through the cache (see HelperBase::cachedTags).
    bool getInputTags(const String& tagFile, const String& fileName, std::list<TagData>& tags);
    bool getOutputTags(const String& tagFile, const String& fileName, std::list<TagData>& tags);
};

class MOSAQ_EXPORT MarkTagging : public TaggingImpl {
public:
    explicit MarkTagging(IPortalHost* host) : TaggingImpl(host) {}
    String getHelperName() override { return "Marking"; }
};

class MOSAQ_EXPORT XmlTagging : public TaggingImpl {
public:
    explicit XmlTagging(IPortalHost* host) : TaggingImpl(host) {}
    String getHelperName() override { return "Xml"; }
};

class MOSAQ_EXPORT ScriptTagging : public TaggingImpl {
public:
    explicit ScriptTagging(IPortalHost* host) : TaggingImpl(host) {}
    String getHelperName() override { return "Scripting"; }
};

}  // namespace MOSAQ::Portals
