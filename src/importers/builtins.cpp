#include "importers/importer.h"

namespace trovara::importers {

std::vector<std::unique_ptr<Importer>> builtinImporters()
{
    std::vector<std::unique_ptr<Importer>> importers;
    importers.push_back(makeTextImporter());
    importers.push_back(makeHtmlImporter());
    importers.push_back(makePdfImporter());
    importers.push_back(makeOpenDocumentImporter());
    importers.push_back(makeOfficeOpenXmlImporter());
    importers.push_back(makeEpubImporter());
    importers.push_back(makeEmailImporter());
    importers.push_back(makeImageImporter());
    importers.push_back(makeAudioImporter());
    return importers;
}

}  // namespace trovara::importers
