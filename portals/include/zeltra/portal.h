// The portal framework's class chain: PortalImpl, the base of every portal,
// which holds the three tagging modules and runs a design through them;
// xmlPortal, which adds the XML walk and its own tag definition file; and
// zeltrasdfPortal, the portal to a solver whose results are SDF files.
//
// A portal object goes through one operation at a time; between operations it
// keeps only its log and cleanup switches and its tag caches.
#pragma once

#include <array>
#include <vector>

#include <pugixml.hpp>

#include "zeltra/helper_base.h"
#include "zeltra/interfaces.h"
#include "zeltra/tagging.h"

namespace MOSAQ::Portals {

class MOSAQ_EXPORT PortalImpl : public HelperBase, public IPortal {
public:
    explicit PortalImpl(IPortalHost* host);
    ~PortalImpl() override;

    String getHelperName() override { return getName(); }
    void* getInterface(int kind) override;

    // Tag definition writes go by the data map's "mode": "fixed" and "free" to
    // marking, "xml" to XML tagging, "script" to scripting; any other mode
    // gives false and leaves errors unchanged.
    bool writeInputTagFile(const String& fileName, const std::list<TagData>& tags,
                           const StringStringMap& data, StringStringMap& outputs,
                           String& errors) override;
    bool writeOutputTagFile(const String& fileName, const std::list<TagData>& tags,
                            const StringStringMap& data, StringStringMap& outputs,
                            String& errors) override;
    // Asks marking, XML tagging and scripting in turn until one claims the file.
    int readInputTags(const String& tagFile, const StringStringMap& data,
                      std::list<TagData>& tags, StringStringMap& outputs,
                      String& errors) override;
    int readOutputTags(const String& tagFile, const StringStringMap& data,
                       std::list<TagData>& tags, StringStringMap& outputs,
                       String& errors) override;
    // Brings the design's values into the input files: marking, then XML
    // tagging, then scripting, each with only its own tag files; the first
    // false ends it.
    bool processInputs(const StringStringMap& data, void* opaque, String& errors) override;
    // "checkSuccess" and "checkFinish" reach the steps of those names; any
    // other name gives false and leaves result alone.
    bool runCheck(const String& name, const StringStringMap& data, bool& result,
                  StringStringMap& outputs) override;
    // Takes the responses out of the output files: the modules first, then
    // each output file with a tag file of the portal's own.
    bool processOutputs(const StringStringMap& data, void* opaque, String& errors) override;
    void finishRun(void* opaque1, void* opaque2) override;

    // --- the portal's own steps ---------------------------------------------
    // Reads the responses of an output file for its tags; false here.
    virtual bool extractResponses(const String& file, const StringStringMap& data,
                                  const std::list<TagData>& tags, String& errors);
    virtual bool checkSuccess(const StringStringMap& data, bool& success,
                              StringStringMap& outputs);
    virtual bool checkFinish(const StringStringMap& data, bool& success,
                             StringStringMap& outputs);
    // Shows the framework's own messages filled with dummy values.
    virtual void testMessages();

    // The whole message table, into the host's message stream.
    void dumpStringTable();
    // One message of the portal's table (or of `table`), filled with the
    // arguments up to the first empty one.
    void showTableMessage(const String& id, const String& a1 = String(),
                          const String& a2 = String(), const String& a3 = String(),
                          const String& a4 = String(), const String& a5 = String(),
                          const String& a6 = String());
    void showTableMessage(const String& table, const String& id, const String& a1,
                          const String& a2, const String& a3, const String& a4,
                          const String& a5, const String& a6);

    // --- around a run ------------------------------------------------------
    // Shows the solver's messages at their levels; true if none was an error.
    bool checkToolMessages(const String& toolName, const StringStringMap& data,
                           StringStringMap& outputs);
    // "primaryInput" or "primaryOutput" of the analysis's portal data.
    String getPrimaryFile(const StringStringMap& data, bool input);
    // The "key: value" lines of the analysis's portal data as a map.
    StringStringMap getAnalysisPortalData(const String& analysisName);
    String getInstallPath(const String& analysisName, bool preferLocal);
    int getDesignNumber();
    bool logPreparing(const StringStringMap& data);
    bool logRunning(const StringStringMap& data);
    // Splits a solver command line into program and arguments; both stay as
    // they are when no split is found.
    static void splitCommand(const String& command, String& program, String& arguments);

    // --- tag files ------------------------------------------------------------
    // Sorts tag files among marking, XML, scripting and the portal by name and
    // first lines; each output list is as long as tagFiles, with the entry
    // kept in its owner's list and blank in the others.
    void filterTagFiles(const StringList& files, const StringList& tagFiles, StringList& mark,
                        StringList& xml, StringList& script, StringList& portal, bool input);
    // tagFiles reduced to the portal's own.
    void portalTagFiles(const StringList& files, StringList& tagFiles, bool input);
    // names without the inputs that stay where they are.
    StringList keepCopiedInputs(const String& analysisName, const StringList& names);
    String getResourceFolder(const String& subFolder);
    // The path of a template: in the run folder, beside the user's copy, or
    // below the resource folder (which need not exist).
    String findTemplate(const String& templateName, const StringStringMap& data);

    // Whether to keep a file: MQT_<NAME>_SAVE, when set, stands in for value.
    bool getSaveFlag(String value, bool defaultValue);

    // A message of the portal's own table: ".Portal" + id.
    String tableText(const String& id);

protected:
    // Tags of a portal tag file through the cache (see HelperBase::cachedTags).
    bool getInputTags(const String& tagFile, const String& fileName, std::list<TagData>& tags);
    bool getOutputTags(const String& tagFile, const String& fileName, std::list<TagData>& tags);

    // The modules in the order they are asked.
    std::array<TaggingImpl*, 3> modules() { return {&marking, &xml, &scripting}; }

    MarkTagging marking;
    XmlTagging xml;
    ScriptTagging scripting;

private:
    TaggingImpl* writerFor(const StringStringMap& data);
};

}  // namespace MOSAQ::Portals

// Adds to PortalImpl the XML walk over a file and the portal's own tag
// definition file (mode "portal"). Every step of the walk is virtual, so a
// portal for a solver's dialect overrides one step and keeps the rest.
class MOSAQ_EXPORT xmlPortal : public MOSAQ::Portals::PortalImpl {
public:
    xmlPortal(MOSAQ::Portals::IPortalHost* host, const MOSAQ::String& name);

    MOSAQ::String getName() override { return name; }
    // Both show an XML file as groups of rows (see parseNode).
    bool parseInputFile(const MOSAQ::String& path, void* opaque,
                        std::list<MOSAQ::Portals::ItemGroup>& groups,
                        MOSAQ::String& errors) override;
    bool parseOutputFile(const MOSAQ::String& path, void* opaque,
                         std::list<MOSAQ::Portals::ItemGroup>& groups,
                         MOSAQ::String& errors) override;
    bool reservedQuery1() override { return false; }
    bool writeInputTagFile(const MOSAQ::String& fileName,
                           const std::list<MOSAQ::Portals::TagData>& tags,
                           const MOSAQ::StringStringMap& data, MOSAQ::StringStringMap& outputs,
                           MOSAQ::String& errors) override;
    bool writeOutputTagFile(const MOSAQ::String& fileName,
                            const std::list<MOSAQ::Portals::TagData>& tags,
                            const MOSAQ::StringStringMap& data, MOSAQ::StringStringMap& outputs,
                            MOSAQ::String& errors) override;
    int readInputTags(const MOSAQ::String& tagFile, const MOSAQ::StringStringMap& data,
                      std::list<MOSAQ::Portals::TagData>& tags, MOSAQ::StringStringMap& outputs,
                      MOSAQ::String& errors) override;
    int readOutputTags(const MOSAQ::String& tagFile, const MOSAQ::StringStringMap& data,
                       std::list<MOSAQ::Portals::TagData>& tags,
                       MOSAQ::StringStringMap& outputs, MOSAQ::String& errors) override;
    // The modules' inputs first, then the design's values into the XML inputs
    // that have a tag file of the portal's own.
    bool processInputs(const MOSAQ::StringStringMap& data, void* opaque,
                       MOSAQ::String& errors) override;

    // --- the walk ---------------------------------------------------------------
    // An element with element children becomes a group: of rows when its first
    // child is a leaf, of sub-groups otherwise. Groups without content are
    // dropped. withSiblings walks the following siblings too.
    virtual bool parseNode(pugi::xml_node node, std::list<MOSAQ::Portals::ItemGroup>& groups,
                           MOSAQ::String& errors, bool withSiblings);
    // Rows for node and its following siblings; the leaves below a non-leaf
    // sibling land in the same group.
    virtual bool collectLeaves(pugi::xml_node node, MOSAQ::Portals::ItemGroup& group,
                               MOSAQ::String& errors);
    virtual bool isLeaf(pugi::xml_node node);        // its first child is text
    virtual bool isNamespaced(pugi::xml_node node);  // its name holds a colon
    virtual void groupCreated(MOSAQ::Portals::ItemGroup& group, const MOSAQ::String& elementName);
    virtual MOSAQ::Portals::PropertyItem makeItem(pugi::xml_node node);
    virtual MOSAQ::String itemKindFor(const MOSAQ::Portals::ItemGroup& group,
                                      const MOSAQ::String& childName);
    // The attribute "name" when it has a value, else the element's name.
    virtual MOSAQ::String nodeLabel(pugi::xml_node node);
    virtual bool acceptDocument(pugi::xml_node root, int unused);

    // --- the tag definition file, hooks -------------------------------------------
    // "paramName", "paramType", then the properties: plain ones as attributes,
    // "Prop" and "PortalData" ones as child elements.
    virtual void writeTagNodeAttributes(pugi::xml_node tagNode,
                                        const MOSAQ::Portals::TagData& tag);
    // False keeps a property of that name out of the file.
    virtual bool acceptProp(const MOSAQ::String& name);
    virtual bool acceptPortalData(const MOSAQ::String& name);
    virtual bool reservedAccept1() { return true; }
    virtual bool reservedAccept2() { return true; }
    // -1 writes the document in any case, 0 only when "Portal" got a child,
    // anything else not at all.
    virtual int checkTagDocument(pugi::xml_document& document, const MOSAQ::StringStringMap& data,
                                 MOSAQ::StringStringMap& outputs);
    // Runs after the tags of a file were read.
    virtual void tagDataRead(pugi::xml_document& document, const MOSAQ::StringStringMap& data,
                             std::list<MOSAQ::Portals::TagData>& tags,
                             MOSAQ::StringStringMap& outputs);

    // --- values in XML documents -----------------------------------------------------
    // Sets the text of the element at path (below the document element, "."
    // between the entries); false if there is no such element.
    virtual bool setNodeValue(const MOSAQ::StringList& path, pugi::xml_document& document,
                              const MOSAQ::String& value);
    // The numbers in the text of the element at path: one per line, or the
    // whole text as one. False if there is no such element or it has no text.
    virtual bool getNodeValues(const MOSAQ::String& path, pugi::xml_document& document,
                               std::vector<double>& values, const char& separator);
    virtual bool getNodeValuesAt(const MOSAQ::StringList& path, pugi::xml_document& document,
                                 std::vector<double>& values);
    // Where a stored parse of file lies (parsedPath) and whether it has to be
    // made anew. MQT_<NAME>_PARSE_INPUT / _OUTPUT name a stored parse to use
    // whatever its age.
    virtual bool needsParse(const MOSAQ::String& file, MOSAQ::String& parsedPath,
                            const MOSAQ::StringStringMap& data, bool input,
                            MOSAQ::String& errors, bool checkContents);

    // --- the portal's own tag definition file ----------------------------------------
    // 0 when tags were read; -1 when the file isn't the portal's, holds no
    // tag or can't be read.
    virtual int readTagData(const MOSAQ::String& tagFile, const MOSAQ::StringStringMap& data,
                            std::list<MOSAQ::Portals::TagData>& tags,
                            MOSAQ::StringStringMap& outputs, bool input, MOSAQ::String& errors);
    // The "Key" and "tag" elements of the tags of mode "portal", below parent.
    virtual void writeTagNodes(const std::list<MOSAQ::Portals::TagData>& tags,
                               pugi::xml_node parent);
    // Writes the file into "destDir" and tells the host its name in outputs;
    // true when no failure was added to errors.
    virtual bool writeTagDefinition(const MOSAQ::String& fileName,
                                    const std::list<MOSAQ::Portals::TagData>& tags,
                                    const MOSAQ::StringStringMap& data,
                                    MOSAQ::StringStringMap& outputs, bool input,
                                    MOSAQ::String& errors);
    // "P_in_" or "P_out_", the analysis name, "_" and the tagged file's name.
    virtual MOSAQ::String tagFileName(const MOSAQ::String& fileName,
                                      const MOSAQ::StringStringMap& data, bool input);
    virtual bool showsProgress() { return false; }

private:
    MOSAQ::String name;
};

// The portal to a solver that leaves its results in SDF files. Its input
// files are tagged by the modules only; its outputs are listed and read
// through the SDF library, each file opened read-only for one operation.
class MOSAQ_EXPORT zeltrasdfPortal : public xmlPortal {
public:
    explicit zeltrasdfPortal(MOSAQ::Portals::IPortalHost* host);

    bool parseInputFile(const MOSAQ::String& path, void* opaque,
                        std::list<MOSAQ::Portals::ItemGroup>& groups,
                        MOSAQ::String& errors) override;
    // One group "Variables" with a row per readable scalar, 1-D array and
    // column of a 2-D array ("<name>__Col<c>").
    bool parseOutputFile(const MOSAQ::String& path, void* opaque,
                         std::list<MOSAQ::Portals::ItemGroup>& groups,
                         MOSAQ::String& errors) override;
    bool writeInputTagFile(const MOSAQ::String& fileName,
                           const std::list<MOSAQ::Portals::TagData>& tags,
                           const MOSAQ::StringStringMap& data, MOSAQ::StringStringMap& outputs,
                           MOSAQ::String& errors) override;
    int readInputTags(const MOSAQ::String& tagFile, const MOSAQ::StringStringMap& data,
                      std::list<MOSAQ::Portals::TagData>& tags, MOSAQ::StringStringMap& outputs,
                      MOSAQ::String& errors) override;
    // The modules alone: the portal writes no values into XML inputs.
    bool processInputs(const MOSAQ::StringStringMap& data, void* opaque,
                       MOSAQ::String& errors) override;
    // Reports the values of each tagged variable; the first that can't be read
    // ends it with false.
    bool extractResponses(const MOSAQ::String& file, const MOSAQ::StringStringMap& data,
                          const std::list<MOSAQ::Portals::TagData>& tags,
                          MOSAQ::String& errors) override;

private:
    // The values of a variable, or of one column of a 2-D one, on an open
    // channel: into numbers, or as display text when wantDisplay is set.
    bool readVariable(int channel, const MOSAQ::String& name, std::vector<double>& numbers,
                      MOSAQ::String& display, bool wantDisplay, MOSAQ::String& errors);
};
