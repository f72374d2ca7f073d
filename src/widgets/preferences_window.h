// The preferences window: the switches and shortcuts kept in the user
// defaults.
//
// - Searches: show results while gathering, file icons in results,
//   invisible files, text content first in new searches, animated view
//   switching, quit when the last window closes, the accent colour.
// - Global shortcuts: the helper application's hot keys and menu item
//   (each switch is saved at once and the helper set up again), and three
//   shortcut recorders (quick search, bring to front, bring to front with
//   a new search) that store {"keyCode", "modifiers"} dictionaries under
//   "blitzSearchHotKey", "bringToFrontHotKey" and
//   "bringToFrontAndCreateHotKey". A combination the desktop already uses,
//   or another of Trovara's shortcuts, is refused.
// - Desktop: the file manager's "Search here" item, the desktop's own
//   file indexer switch (hidden where the desktop has none of the indexers
//   Trovara knows), and installing the default templates again.
//
// Every control writes through at once; there is no Apply. Main thread only.
#pragma once

#include "app/application_delegate.h"
#include "app/spotlight_service.h"
#include "app/system_shortcuts.h"

#include <QDialog>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QCheckBox;
class QComboBox;
class QPushButton;

namespace trovara::widgets {

class ShortcutRecorder;

class PreferencesController final : public QDialog {
    Q_OBJECT

public:
    explicit PreferencesController(app::ApplicationDelegate& delegate, QWidget* parent = nullptr);
    ~PreferencesController() override;

    // The shortcuts the desktop uses (read from the desktop on first need
    // unless set).
    void setSystemShortcuts(app::SystemShortcuts shortcuts) { m_systemShortcuts = std::move(shortcuts); }
    // How a refused shortcut is shown (by default a warning on this window).
    void setRefusalPresenter(std::function<void(const QString& message)> presenter);

    // The desktop indexer's switch behind the button; none hides it.
    void setIndexerSwitch(std::unique_ptr<app::SpotlightService> indexer);

    // Sets every control from the user defaults.
    void loadFromDefaults();

    // The controls, for the adapters that wire the desktop buttons, and
    // for tests.
    ShortcutRecorder* quickSearchRecorder() const { return m_recorders[0]; }
    ShortcutRecorder* bringToFrontRecorder() const { return m_recorders[1]; }
    ShortcutRecorder* bringToFrontAndCreateRecorder() const { return m_recorders[2]; }
    QCheckBox* checkBoxForKey(const QString& key) const;
    QComboBox* accentColorChooser() const { return m_accentColor; }
    QPushButton* fileManagerItemButton() const { return m_fileManagerItem; }
    QPushButton* systemSearchButton() const { return m_systemSearch; }
    QPushButton* installTemplatesButton() const { return m_installTemplates; }

private:
    QString refusalFor(int recorderIndex, const app::KeyCombination& combination);
    void recorderChanged(int recorderIndex, const app::KeyCombination& combination);
    void checkBoxToggled(const QString& key, bool checked);
    void setUpIndexerButton();
    void indexerButtonPressed();

    app::ApplicationDelegate& m_delegate;
    std::optional<app::SystemShortcuts> m_systemShortcuts;
    ShortcutRecorder* m_recorders[3] = {};
    std::vector<std::pair<QString, QCheckBox*>> m_checkBoxes;
    QComboBox* m_accentColor = nullptr;
    QPushButton* m_fileManagerItem = nullptr;
    QPushButton* m_systemSearch = nullptr;
    QPushButton* m_installTemplates = nullptr;
    std::unique_ptr<app::SpotlightService> m_indexer;
};

}  // namespace trovara::widgets
