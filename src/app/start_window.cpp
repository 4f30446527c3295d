#include "app/start_window.h"

#include "app/icons.h"
#include "app/theme.h"

#include <QDateTime>
#include <QDir>
#include <QDragEnterEvent>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QMimeData>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QStyledItemDelegate>
#include <QUrl>
#include <QVBoxLayout>

namespace orvelle {

namespace fs = std::filesystem;

namespace {

constexpr int kPathRole = Qt::UserRole + 1;

bool isPackage(const fs::path& path) {
    return path.extension() == ".orvelle";
}

QString displayName(const fs::path& path) {
    return QString::fromStdString(path.stem().string());
}

QString relativeDate(const QDateTime& when) {
    const QDate today = QDate::currentDate();
    if (when.date() == today) {
        return QStringLiteral("Today, ") + when.toString(QStringLiteral("HH:mm"));
    }
    if (when.date() == today.addDays(-1)) {
        return QStringLiteral("Yesterday, ") + when.toString(QStringLiteral("HH:mm"));
    }
    if (when.date().year() == today.year()) {
        return when.toString(QStringLiteral("d MMM"));
    }
    return when.toString(QStringLiteral("d MMM yyyy"));
}

// One row of the recent list: the kind's icon, the title, the folder and when it changed.
class RecentDocumentDelegate final : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QSize sizeHint(const QStyleOptionViewItem&, const QModelIndex&) const override {
        return {280, 58};
    }

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override {
        const fs::path path(index.data(kPathRole).toString().toStdString());
        const QFileInfo info(QString::fromStdString(path.string()));
        const bool exists = info.exists();
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        const QRectF row = QRectF(option.rect).adjusted(4, 2, -4, -2);
        if (option.state & QStyle::State_Selected) {
            painter->setPen(Qt::NoPen);
            painter->setBrush(QColor(0x34, 0x30, 0x5a));
            painter->drawRoundedRect(row, 8, 8);
        } else if (option.state & QStyle::State_MouseOver) {
            painter->setPen(Qt::NoPen);
            painter->setBrush(Theme::raisedBackground());
            painter->drawRoundedRect(row, 8, 8);
        }
        const QRectF badge(row.left() + 10, row.center().y() - 17, 34, 34);
        painter->setPen(Qt::NoPen);
        painter->setBrush(isPackage(path) ? QColor(0x3b, 0x32, 0x6e) : QColor(0x2c, 0x3a, 0x52));
        painter->drawRoundedRect(badge, 8, 8);
        paintIcon(*painter, isPackage(path) ? IconName::open : IconName::film,
                  badge.adjusted(7, 7, -7, -7), exists ? Theme::text() : Theme::tertiaryText());

        const double textLeft = badge.right() + 12;
        const QString date = exists ? relativeDate(info.lastModified()) : QStringLiteral("Missing");
        QFont dateFont = Theme::interfaceFont(8.5);
        const double dateWidth = QFontMetricsF(dateFont).horizontalAdvance(date) + 8;
        const QRectF titleRect(textLeft, row.top() + 9, row.right() - textLeft - dateWidth - 8, 20);
        const QRectF pathRect(textLeft, row.top() + 29, row.right() - textLeft - 10, 18);

        QFont titleFont = Theme::interfaceFont(10, 600);
        painter->setFont(titleFont);
        painter->setPen(exists ? Theme::text() : Theme::tertiaryText());
        painter->drawText(titleRect, Qt::AlignLeft | Qt::AlignVCenter,
                          QFontMetricsF(titleFont).elidedText(displayName(path), Qt::ElideRight,
                                                              titleRect.width()));
        QFont pathFont = Theme::interfaceFont(8.5);
        painter->setFont(pathFont);
        painter->setPen(Theme::tertiaryText());
        const QString folder = QString::fromStdString(path.parent_path().string())
                                   .replace(QDir::homePath(), QStringLiteral("~"));
        painter->drawText(
            pathRect, Qt::AlignLeft | Qt::AlignVCenter,
            QFontMetricsF(pathFont).elidedText(folder, Qt::ElideMiddle, pathRect.width()));
        painter->setFont(dateFont);
        painter->setPen(exists ? Theme::secondaryText() : Theme::destructive());
        painter->drawText(QRectF(row.right() - dateWidth - 8, titleRect.top(), dateWidth, 20),
                          Qt::AlignRight | Qt::AlignVCenter, date);
        painter->restore();
    }
};

// The dashed place to drop a document on; lit while a drag that it would take is over the
// window.
class DropZone final : public QWidget {
public:
    explicit DropZone(QWidget* parent) : QWidget(parent) { setMinimumHeight(150); }
    void setHighlighted(bool highlighted) {
        highlighted_ = highlighted;
        update();
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QRectF box = QRectF(rect()).adjusted(1, 1, -1, -1);
        QPen pen(highlighted_ ? Theme::accent() : Theme::separator().lighter(130), 1.5,
                 Qt::DashLine);
        pen.setDashPattern({5, 4});
        painter.setPen(pen);
        painter.setBrush(highlighted_ ? QColor(0x7c, 0x5c, 0xff, 40) : QColor(0, 0, 0, 0));
        painter.drawRoundedRect(box, 12, 12);
        const QRectF iconRect(box.center().x() - 16, box.top() + 34, 32, 32);
        paintIcon(painter, IconName::save, iconRect,
                  highlighted_ ? Theme::accent().lighter(130) : Theme::secondaryText());
    }

private:
    bool highlighted_ = false;
};

} // namespace

std::vector<fs::path> droppedFiles(const QMimeData& data) {
    std::vector<fs::path> files;
    for (const QUrl& url : data.urls()) {
        if (url.isLocalFile()) {
            files.emplace_back(url.toLocalFile().toStdString());
        }
    }
    return files;
}

StartWindow::StartWindow(Actions actions, QWidget* parent)
    : QWidget(parent), actions_(std::move(actions)) {
    setObjectName(QStringLiteral("StartWindow"));
    setWindowTitle(QStringLiteral("Orvelle"));
    setWindowIcon(applicationIcon());
    setAcceptDrops(true);
    resize(860, 540);
    setMinimumSize(720, 460);

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    // The welcome side.
    auto* welcome = new QWidget(this);
    welcome->setFixedWidth(380);
    auto* left = new QVBoxLayout(welcome);
    left->setContentsMargins(40, 44, 36, 36);
    left->setSpacing(0);
    auto* logo = new QLabel(welcome);
    logo->setPixmap(applicationIconPixmap(76, devicePixelRatioF()));
    logo->setFixedSize(76, 76);
    left->addWidget(logo);
    left->addSpacing(20);
    auto* title = new QLabel(QStringLiteral("Orvelle"), welcome);
    title->setFont(Theme::interfaceFont(22, 700));
    left->addWidget(title);
    left->addSpacing(6);
    auto* subtitle =
        new QLabel(QStringLiteral("Turn a screen recording into a finished movie."), welcome);
    subtitle->setProperty("role", "secondary");
    subtitle->setWordWrap(true);
    left->addWidget(subtitle);
    left->addSpacing(28);
    if (actions_.newRecording) {
        recordButton_ = new QPushButton(icon(IconName::record, QColor(0xe5, 0x48, 0x4d)),
                                        QStringLiteral("New Recording…"), welcome);
        recordButton_->setProperty("primary", true);
        recordButton_->setMinimumHeight(36);
        recordButton_->setToolTip(
            QStringLiteral("Record a display, a window or an area with camera and microphone "
                           "(Ctrl+N)"));
        recordButton_->setShortcut(QKeySequence(QStringLiteral("Ctrl+N")));
        connect(recordButton_, &QPushButton::clicked, this, [this] { actions_.newRecording(); });
        left->addWidget(recordButton_);
        left->addSpacing(Theme::kSpacing);
    }
    openButton_ = new QPushButton(
        icon(IconName::open, actions_.newRecording ? Theme::text() : QColor(Qt::white)),
        QStringLiteral("Open…"), welcome);
    openButton_->setProperty("primary", !actions_.newRecording);
    openButton_->setMinimumHeight(36);
    openButton_->setToolTip(QStringLiteral("Open a take, a project or a movie (Ctrl+O)"));
    connect(openButton_, &QPushButton::clicked, this, [this] {
        if (actions_.showOpenDialog && !opening_) {
            actions_.showOpenDialog();
        }
    });
    left->addWidget(openButton_);
    left->addSpacing(20);
    auto* zone = new DropZone(welcome);
    dropZone_ = zone;
    auto* zoneLayout = new QVBoxLayout(zone);
    zoneLayout->setContentsMargins(16, 76, 16, 18);
    dropLabel_ = new QLabel(QStringLiteral("Drop a take, a project or a movie here"), zone);
    dropLabel_->setAlignment(Qt::AlignCenter);
    dropLabel_->setWordWrap(true);
    dropLabel_->setProperty("role", "secondary");
    zoneLayout->addWidget(dropLabel_);
    left->addWidget(zone);
    left->addStretch(1);
    layout->addWidget(welcome);

    // The recent side.
    auto* recent = new QWidget(this);
    recent->setAutoFillBackground(true);
    QPalette palette = recent->palette();
    palette.setColor(QPalette::Window, Theme::panelBackground());
    recent->setPalette(palette);
    auto* right = new QVBoxLayout(recent);
    right->setContentsMargins(20, 44, 20, 20);
    right->setSpacing(10);
    auto* heading = new QLabel(QStringLiteral("RECENT"), recent);
    heading->setProperty("role", "section");
    heading->setContentsMargins(10, 0, 0, 0);
    right->addWidget(heading);
    recentList_ = new QListWidget(recent);
    recentList_->setItemDelegate(new RecentDocumentDelegate(recentList_));
    recentList_->setMouseTracking(true);
    recentList_->setSelectionMode(QAbstractItemView::SingleSelection);
    recentList_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    recentList_->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(recentList_, &QListWidget::itemActivated, this, [this](QListWidgetItem* item) {
        if (actions_.open && !opening_) {
            actions_.open(fs::path(item->data(kPathRole).toString().toStdString()));
        }
    });
    connect(recentList_, &QListWidget::customContextMenuRequested, this, [this](QPoint at) {
        QListWidgetItem* item = recentList_->itemAt(at);
        if (item == nullptr) {
            return;
        }
        const fs::path path(item->data(kPathRole).toString().toStdString());
        QMenu menu(this);
        menu.addAction(QStringLiteral("Open"), this, [this, path] {
            if (actions_.open && !opening_) {
                actions_.open(path);
            }
        });
        menu.addAction(QStringLiteral("Remove from Recent"), this, [this, path] {
            if (actions_.removeRecent) {
                actions_.removeRecent(path);
            }
        });
        menu.exec(recentList_->viewport()->mapToGlobal(at));
    });
    right->addWidget(recentList_, 1);
    emptyLabel_ = new QLabel(QStringLiteral("The documents you open will be listed here."), recent);
    emptyLabel_->setAlignment(Qt::AlignCenter);
    emptyLabel_->setWordWrap(true);
    emptyLabel_->setProperty("role", "secondary");
    right->addWidget(emptyLabel_, 1);
    layout->addWidget(recent, 1);
    setRecentDocuments({});
}

void StartWindow::setRecentDocuments(const std::vector<fs::path>& paths) {
    recentList_->clear();
    for (const auto& path : paths) {
        auto* item = new QListWidgetItem(displayName(path), recentList_);
        item->setData(kPathRole, QString::fromStdString(path.string()));
        item->setToolTip(QString::fromStdString(path.string()));
    }
    recentList_->setVisible(!paths.empty());
    emptyLabel_->setVisible(paths.empty());
}

void StartWindow::setOpening(const fs::path* path) {
    opening_ = path != nullptr;
    openButton_->setEnabled(!opening_);
    dropLabel_->setText(opening_ ? QStringLiteral("Opening “%1”…").arg(displayName(*path))
                                 : QStringLiteral("Drop a take, a project or a movie here"));
    setCursor(opening_ ? Qt::BusyCursor : Qt::ArrowCursor);
}

void StartWindow::setDropHighlighted(bool highlighted) {
    dropHighlighted_ = highlighted;
    static_cast<DropZone*>(dropZone_)->setHighlighted(highlighted);
}

void StartWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (!opening_ && !droppedFiles(*event->mimeData()).empty()) {
        event->acceptProposedAction();
        setDropHighlighted(true);
    }
}

void StartWindow::dragLeaveEvent(QDragLeaveEvent*) {
    setDropHighlighted(false);
}

void StartWindow::closeEvent(QCloseEvent* event) {
    QWidget::closeEvent(event);
    if (actions_.closed && event->spontaneous()) {
        actions_.closed();
    }
}

void StartWindow::dropEvent(QDropEvent* event) {
    setDropHighlighted(false);
    const auto files = droppedFiles(*event->mimeData());
    if (files.empty() || opening_) {
        return;
    }
    event->acceptProposedAction();
    if (actions_.open) {
        actions_.open(files.front());
    }
}

} // namespace orvelle
