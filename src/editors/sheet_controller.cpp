#include "editors/sheet_controller.h"

namespace trovara::editors {

SheetController::SheetController(document::Document& document, QString nibName, QObject* parent)
    : QObject(parent)
    , m_document(document)
    , m_nibName(std::move(nibName))
{
}

SheetController::~SheetController() = default;

bool SheetController::beginSheetWithDelegate(DidEnd didEnd)
{
    if (m_open) {
        return false;
    }
    setUp();
    if (!shouldBeginSheet()) {
        cleanUp();
        return false;
    }
    m_didEnd = std::move(didEnd);
    m_open = true;
    emit sheetBegan();
    if (m_presenter) {
        m_presenter(*this);
    }
    return true;
}

void SheetController::dismissSheetWithReturnCode(int returnCode)
{
    if (!m_open) {
        return;
    }
    m_open = false;
    DidEnd didEnd = std::move(m_didEnd);
    m_didEnd = {};
    if (didEnd) {
        didEnd(returnCode);
    }
    emit sheetEnded(returnCode);
    cleanUp();
}

void SheetController::documentWindowWillClose()
{
    if (m_open) {
        dismissSheetWithReturnCode(Cancel);
    } else {
        cleanUp();
    }
}

}  // namespace trovara::editors
