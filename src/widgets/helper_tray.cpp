#include "widgets/helper_tray.h"

#include "helper/helper_controller.h"

#include <QApplication>
#include <QIcon>
#include <QMenu>
#include <QMessageBox>
#include <QSystemTrayIcon>

namespace trovara::widgets {

HelperTray::HelperTray(helper::HelperController& controller, QObject* parent)
    : QObject(parent)
    , m_controller(controller)
    , m_menu(std::make_unique<QMenu>())
    , m_icon(new QSystemTrayIcon(this))
{
    m_menu->setAccessibleName(tr("Trovara"));
    m_menu->addAction(tr("New Search"), &controller, &helper::HelperController::newSearch);
    m_menu->addAction(tr("Search for the Selection"), &controller, &helper::HelperController::quickSearch);
    m_menu->addAction(tr("Bring Trovara to Front"), &controller, &helper::HelperController::bringToFront);
    m_menu->addSeparator();
    m_menu->addAction(tr("Preferences…"), &controller, &helper::HelperController::showPreferences);
    m_hotKeys = m_menu->addAction(tr("Set Up Hot Keys…"), this, &HelperTray::showHotKeysMessage);
    m_menu->addSeparator();
    m_menu->addAction(tr("Quit Trovara Helper"), &controller, &helper::HelperController::quitRequested);

    m_icon->setIcon(QIcon::fromTheme(QStringLiteral("com.velmont.Trovara"),
                                     QIcon::fromTheme(QStringLiteral("system-search"))));
    m_icon->setToolTip(tr("Trovara"));
    m_icon->setContextMenu(m_menu.get());
    // A click on the icon itself brings Trovara forward.
    connect(m_icon, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger) {
            m_controller.bringToFront();
        }
    });
    connect(&controller, &helper::HelperController::menuItemEnabledChanged, m_icon, &QSystemTrayIcon::setVisible);
    connect(&controller, &helper::HelperController::hotKeysMessageChanged, this, &HelperTray::hotKeysMessageChanged);
    m_icon->setVisible(controller.menuItemEnabled());
    hotKeysMessageChanged(controller.hotKeysMessage());
}

HelperTray::~HelperTray() = default;

void HelperTray::hotKeysMessageChanged(const QString& message)
{
    m_hotKeys->setVisible(!message.isEmpty());
    if (message.isEmpty() || m_toldAboutHotKeys) {
        return;
    }
    m_toldAboutHotKeys = true;
    if (m_icon->isVisible() && QSystemTrayIcon::supportsMessages()) {
        m_icon->showMessage(tr("Trovara's hot keys"), message, QSystemTrayIcon::Information);
    }
}

void HelperTray::showHotKeysMessage()
{
    auto* box = new QMessageBox(QMessageBox::Information, tr("Trovara's hot keys"), m_controller.hotKeysMessage(),
                                QMessageBox::Ok);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setTextInteractionFlags(Qt::TextSelectableByMouse);
    box->show();
}

}  // namespace trovara::widgets
