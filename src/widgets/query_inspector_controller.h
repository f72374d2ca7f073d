// The query inspector: what the active search document asks the index, as
// it stands: the query string (the one running, or the one Start would
// run), the places searched, the places left out, the limit and the state
// of the search with its status line. Every field can be selected and
// copied; the panel follows the document's changes as they happen.
#pragma once

#include "widgets/abstract_inspector_controller.h"

class QLabel;
class QPlainTextEdit;

namespace trovara::widgets {

class QueryInspectorController final : public AbstractInspectorController {
    Q_OBJECT

public:
    explicit QueryInspectorController(QObject* parent = nullptr);

    QString menuTitleWhenActive(bool active) const override;

    // The texts shown (tests, and what a screen reader reads).
    QString queryText() const;
    QString placesText() const;
    QString exclusionsText() const;
    QString limitText() const;
    QString stateText() const;

protected:
    QWidget* makeContents() override;
    void showContent(document::Document* document) override;

private:
    void refresh();

    QPlainTextEdit* m_query = nullptr;
    QLabel* m_places = nullptr;
    QLabel* m_exclusions = nullptr;
    QLabel* m_limit = nullptr;
    QLabel* m_state = nullptr;
    QList<QMetaObject::Connection> m_documentConnections;
};

}  // namespace trovara::widgets
