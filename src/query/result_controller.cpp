#include "query/result_controller.h"

namespace trovara::query {

ResultController::ResultController(ResultTableModel* arrayController, QObject* parent)
    : QObject(parent)
    , m_arrayController(arrayController)
{
}

void ResultController::setSelectedTabIndex(int index)
{
    if (index < TableView || index > CoverFlowView || index == m_selectedTabIndex) {
        return;
    }
    m_selectedTabIndex = index;
    emit selectedTabIndexChanged(index);
}

}  // namespace trovara::query
