// Aids for whoever checks the portal's message texts: the whole table dumped
// into the host's message stream, and a walk over the framework's own
// messages filled with dummy values, shown as a user would see them.
#include "zeltra/portal.h"

namespace MOSAQ::Portals {

void PortalImpl::dumpStringTable() {
    const StringStringMap none;
    showMessage("##### START OF ALL STRING TABLE MESSAGES #####\n", none, kLevelNote);
    showMessage("\n", none, kLevelNote);
    showMessage(Support::StringTable::dumpStringTableIdsAndMessages(), none, kLevelNote);
    showMessage("##### END OF ALL STRING TABLE MESSAGES #####\n", none, kLevelNote);
}

void PortalImpl::showTableMessage(const String& id, const String& a1, const String& a2,
                                  const String& a3, const String& a4, const String& a5,
                                  const String& a6) {
    showTableMessage(getName(), id, a1, a2, a3, a4, a5, a6);
}

void PortalImpl::showTableMessage(const String& table, const String& id, const String& a1,
                                  const String& a2, const String& a3, const String& a4,
                                  const String& a5, const String& a6) {
    const StringStringMap none;
    showMessage("\n" + id, none, kLevelNote);
    StringList args;
    for (const String* a : {&a1, &a2, &a3, &a4, &a5, &a6}) {
        if (a->empty()) break;
        args.push_back(*a);
    }
    const String text = Support::StringTable::lookup(table, ".Portal" + id);
    showMessage(formatList(text, args), none, kLevelNote);
}

void PortalImpl::testMessages() {
    const String file = "C:\\dummy\\path\\that\\does\\not\\matter\\filename.ext";
    const String messageFile = "C:\\dummy\\path\\that\\does\\not\\matter\\msgFile.msg";
    showTableMessage(".err.parseBadPath", file);
    showTableMessage(".err.parse", file, messageFile);
    showTableMessage(".err.fileOpenWrite", file);
    showTableMessage(".err.tagReadInput", file);
    showTableMessage(".msg.tagNumInput", numberText(99));
    showTableMessage(".err.tagIncompleteInput", "parameter_1");
    showTableMessage(".err.tagValueInput", "input_parameter_1");
    showTableMessage(".err.tagReadOutput", file);
    showTableMessage(".err.fileOpenRead", file);
    showTableMessage(".err.tagIncompleteOutput", "output_parameter_1");
    showTableMessage(".err.fileNotFound", file);
    showMessage("\n", StringStringMap(), kLevelNote);
}

}  // namespace MOSAQ::Portals
