#include "widgets/preferences_window.h"

#include "app/accent_colors.h"
#include "app/file_manager_actions.h"
#include "model/defaults.h"
#include "widgets/shortcut_recorder.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPixmap>
#include <QPushButton>
#include <QSignalBlocker>
#include <QToolButton>
#include <QVBoxLayout>

namespace trovara::widgets {

namespace {

// The three recorders: the default each stores under, what it is called.
struct RecorderEntry {
    const char* key;
    const char* label;  // with its mnemonic
    const char* name;   // accessible name, and what a refusal calls it
};
constexpr RecorderEntry kRecorders[] = {
    {"blitzSearchHotKey", QT_TRANSLATE_NOOP("Preferences", "&Quick search:"),
     QT_TRANSLATE_NOOP("Preferences", "Quick search shortcut")},
    {"bringToFrontHotKey", QT_TRANSLATE_NOOP("Preferences", "&Bring Trovara to the front:"),
     QT_TRANSLATE_NOOP("Preferences", "Bring to front shortcut")},
    {"bringToFrontAndCreateHotKey", QT_TRANSLATE_NOOP("Preferences", "Bring to front with a &new search:"),
     QT_TRANSLATE_NOOP("Preferences", "Bring to front with a new search shortcut")},
};

struct CheckBoxEntry {
    const char* key;
    const char* label;
};
constexpr CheckBoxEntry kSearchSwitches[] = {
    {"showResultsImmediately", QT_TRANSLATE_NOOP("Preferences", "Show &results while a search is gathering")},
    {"showIconsInResults", QT_TRANSLATE_NOOP("Preferences", "Show file &icons in the results")},
    {"includeInvisibleFiles", QT_TRANSLATE_NOOP("Preferences", "Include in&visible files")},
    {"listTextContentFirst", QT_TRANSLATE_NOOP("Preferences", "Offer &text content first in new searches")},
    {"enableTabViewAnimations", QT_TRANSLATE_NOOP("Preferences", "&Animate switching between result views")},
    {"quitOnCloseOfLastWindow", QT_TRANSLATE_NOOP("Preferences", "&Quit when the last window is closed")},
};
constexpr CheckBoxEntry kHelperSwitches[] = {
    {"enableGlobalHotKeys", QT_TRANSLATE_NOOP("Preferences", "Enable global &hot keys")},
    {"enableGlobalMenuItem", QT_TRANSLATE_NOOP("Preferences", "Show Trovara's &menu in the panel")},
};

QString translated(const char* text)
{
    return QCoreApplication::translate("Preferences", text);
}

// The label text without its mnemonic marker.
QString plain(const char* text)
{
    QString result = translated(text);
    result.remove(QLatin1Char('&'));
    if (result.endsWith(QLatin1Char(':'))) {
        result.chop(1);
    }
    return result;
}

QIcon swatch(const app::AccentColor& color)
{
    QPixmap pixmap(16, 16);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    QLinearGradient gradient(0, 0, 0, 16);
    gradient.setColorAt(0, QColor(QLatin1String(color.light)));
    gradient.setColorAt(1, QColor(QLatin1String(color.dark)));
    painter.setBrush(gradient);
    painter.setPen(QColor(QLatin1String(color.dark)));
    painter.drawRoundedRect(QRectF(0.5, 0.5, 15, 15), 3, 3);
    return QIcon(pixmap);
}

}  // namespace

PreferencesController::PreferencesController(app::ApplicationDelegate& delegate, QWidget* parent)
    : QDialog(parent)
    , m_delegate(delegate)
{
    setWindowTitle(tr("Preferences"));
    setObjectName(QStringLiteral("Preferences"));
    auto* layout = new QVBoxLayout(this);

    // --- Searches ---
    auto* searches = new QGroupBox(tr("Searches"), this);
    auto* searchLayout = new QVBoxLayout(searches);
    auto addCheckBox = [this](QBoxLayout* into, const CheckBoxEntry& entry) {
        const QString key = QLatin1String(entry.key);
        auto* box = new QCheckBox(translated(entry.label), this);
        box->setAccessibleName(plain(entry.label));
        box->setObjectName(key);
        into->addWidget(box);
        m_checkBoxes.emplace_back(key, box);
        connect(box, &QCheckBox::toggled, this, [this, key](bool checked) { checkBoxToggled(key, checked); });
    };
    for (const CheckBoxEntry& entry : kSearchSwitches) {
        addCheckBox(searchLayout, entry);
    }
    auto* colorRow = new QHBoxLayout;
    auto* colorLabel = new QLabel(tr("Accent &colour:"), searches);
    m_accentColor = new QComboBox(searches);
    m_accentColor->setAccessibleName(tr("Accent colour"));
    for (const app::AccentColor& color : app::kAccentColors) {
        m_accentColor->addItem(swatch(color), translated(color.name));
    }
    colorLabel->setBuddy(m_accentColor);
    colorRow->addWidget(colorLabel);
    colorRow->addWidget(m_accentColor);
    colorRow->addStretch();
    searchLayout->addLayout(colorRow);
    connect(m_accentColor, &QComboBox::activated, this, [](int index) {
        model::Defaults::shared().setValue(QStringLiteral("accentColorNumber"), index);
        model::Defaults::shared().synchronize();
    });
    layout->addWidget(searches);

    // --- Global shortcuts ---
    auto* global = new QGroupBox(tr("Global Shortcuts"), this);
    auto* globalLayout = new QVBoxLayout(global);
    for (const CheckBoxEntry& entry : kHelperSwitches) {
        addCheckBox(globalLayout, entry);
    }
    auto* form = new QFormLayout;
    for (int i = 0; i < 3; ++i) {
        auto* recorder = new ShortcutRecorder(global);
        // Wide enough for the longest combination a person records.
        recorder->setMinimumWidth(recorder->fontMetrics().horizontalAdvance(QStringLiteral("Ctrl+Alt+Shift+Meta+PgDown"))
                                  + 2 * recorder->fontMetrics().averageCharWidth());
        recorder->setAccessibleName(translated(kRecorders[i].name));
        recorder->setObjectName(QLatin1String(kRecorders[i].key));
        recorder->setValidator([this, i](const app::KeyCombination& combination) { return refusalFor(i, combination); });
        connect(recorder, &ShortcutRecorder::combinationChanged, this,
                [this, i](const app::KeyCombination& combination) { recorderChanged(i, combination); });
        auto* clear = new QToolButton(global);
        clear->setText(tr("Clear"));
        clear->setAccessibleName(tr("Clear %1").arg(translated(kRecorders[i].name).toLower()));
        clear->setFocusPolicy(Qt::StrongFocus);
        connect(clear, &QToolButton::clicked, this, [this, i] {
            m_recorders[i]->setCombination({});
            recorderChanged(i, {});
        });
        auto* row = new QHBoxLayout;
        row->addWidget(recorder, 1);
        row->addWidget(clear);
        auto* label = new QLabel(translated(kRecorders[i].label), global);
        label->setBuddy(recorder);
        form->addRow(label, row);
        m_recorders[i] = recorder;
    }
    globalLayout->addLayout(form);
    layout->addWidget(global);

    // --- Desktop ---
    auto* desktop = new QGroupBox(tr("Desktop"), this);
    auto* desktopLayout = new QVBoxLayout(desktop);
    m_fileManagerItem = new QPushButton(tr("Add \"Search Here\" to the &File Manager"), desktop);
    m_fileManagerItem->setAccessibleName(tr("Add Search Here to the file manager"));
    auto* fileManagerStatus = new QLabel(desktop);
    fileManagerStatus->setObjectName(QStringLiteral("fileManagerStatus"));
    connect(m_fileManagerItem, &QPushButton::clicked, this, [fileManagerStatus] {
        const Result<QStringList> installed = app::FileManagerActions::installForUser();
        fileManagerStatus->setText(installed ? tr("Added: right-click folders, then \"Search in Trovara\".")
                                             : installed.error().toString());
    });
    m_systemSearch = new QPushButton(tr("Turn Off the Desktop's File &Indexer"), desktop);
    m_systemSearch->setAccessibleName(tr("Turn off the desktop's file indexer"));
    m_systemSearch->setVisible(false);
    connect(m_systemSearch, &QPushButton::clicked, this, &PreferencesController::indexerButtonPressed);
    m_installTemplates = new QPushButton(tr("Install &Default Templates"), desktop);
    m_installTemplates->setAccessibleName(tr("Install default templates"));
    auto* installed = new QLabel(desktop);
    installed->setObjectName(QStringLiteral("templatesStatus"));
    connect(m_installTemplates, &QPushButton::clicked, this, [this, installed] {
        installed->setText(m_delegate.installTemplates(true) ? tr("Installed.")
                                                             : tr("The default templates could not be installed."));
    });
    auto* fileManagerRow = new QHBoxLayout;
    fileManagerRow->addWidget(m_fileManagerItem);
    fileManagerRow->addWidget(fileManagerStatus, 1);
    desktopLayout->addLayout(fileManagerRow);
    desktopLayout->addWidget(m_systemSearch);
    auto* templatesRow = new QHBoxLayout;
    templatesRow->addWidget(m_installTemplates);
    templatesRow->addWidget(installed, 1);
    desktopLayout->addLayout(templatesRow);
    layout->addWidget(desktop);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    buttons->button(QDialogButtonBox::Close)->setAccessibleName(tr("Close preferences"));
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    layout->addWidget(buttons);

    loadFromDefaults();
}

PreferencesController::~PreferencesController() = default;

void PreferencesController::setRefusalPresenter(std::function<void(const QString& message)> presenter)
{
    for (ShortcutRecorder* recorder : m_recorders) {
        recorder->setRefusalPresenter(presenter);
    }
}

void PreferencesController::setIndexerSwitch(std::unique_ptr<app::SpotlightService> indexer)
{
    m_indexer = std::move(indexer);
    setUpIndexerButton();
}

void PreferencesController::setUpIndexerButton()
{
    const bool offered = m_indexer && m_indexer->serviceExists();
    m_systemSearch->setVisible(offered);
    if (offered) {
        const QString title = m_indexer->buttonTitle();
        m_systemSearch->setText(title);
        m_systemSearch->setAccessibleName(title);
    }
}

void PreferencesController::indexerButtonPressed()
{
    if (!m_indexer) {
        return;
    }
    const Status changed = m_indexer->isEnabled() ? m_indexer->disable() : m_indexer->enable();
    if (!changed) {
        m_delegate.presentError(changed.error());
    }
    setUpIndexerButton();
}

void PreferencesController::loadFromDefaults()
{
    const model::Defaults& defaults = model::Defaults::shared();
    for (int i = 0; i < 3; ++i) {
        const std::optional<app::KeyCombination> stored =
            app::KeyCombination::fromDictionary(defaults.value(QLatin1String(kRecorders[i].key)));
        m_recorders[i]->setCombination(stored.value_or(app::KeyCombination{}));
    }
    for (const auto& [key, box] : m_checkBoxes) {
        const QSignalBlocker blocker(box);
        box->setChecked(defaults.boolValue(key));
    }
    m_accentColor->setCurrentIndex(
        std::clamp(defaults.intValue(QStringLiteral("accentColorNumber")), 0, int(app::kAccentColors.size()) - 1));
}

QCheckBox* PreferencesController::checkBoxForKey(const QString& key) const
{
    for (const auto& [boxKey, box] : m_checkBoxes) {
        if (boxKey == key) {
            return box;
        }
    }
    return nullptr;
}

QString PreferencesController::refusalFor(int recorderIndex, const app::KeyCombination& combination)
{
    if (!m_systemShortcuts) {
        m_systemShortcuts = app::SystemShortcuts::fromDesktop();
    }
    if (m_systemShortcuts->contains(combination)) {
        return app::SystemShortcuts::refusalMessage(combination);
    }
    for (int i = 0; i < 3; ++i) {
        if (i != recorderIndex && m_recorders[i]->combination() == combination) {
            return tr("The key combination \"%1\" is already the %2.")
                .arg(app::keyCombinationText(combination), translated(kRecorders[i].name).toLower());
        }
    }
    return {};
}

void PreferencesController::recorderChanged(int recorderIndex, const app::KeyCombination& combination)
{
    // A cleared recorder stores key code -1: the shortcut is off, even where
    // a default is registered.
    const app::KeyCombination stored = combination.isValid() ? combination : app::KeyCombination{-1, 0};
    model::Defaults::shared().setValue(QLatin1String(kRecorders[recorderIndex].key), stored.toDictionary());
}

void PreferencesController::checkBoxToggled(const QString& key, bool checked)
{
    model::Defaults& defaults = model::Defaults::shared();
    defaults.setValue(key, checked);
    defaults.synchronize();
    for (const CheckBoxEntry& entry : kHelperSwitches) {
        if (key == QLatin1String(entry.key)) {
            m_delegate.helperSwitch().setUpHelper(true);
        }
    }
}

}  // namespace trovara::widgets
