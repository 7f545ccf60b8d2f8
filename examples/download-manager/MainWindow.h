#pragma once

#include "DownloadModel.h"
#include "Logins.h"

#include <NetworkQueue.h>

#include <QMainWindow>

class QAction;
class QCheckBox;
class QLabel;
class QLayout;
class QLineEdit;
class QSpinBox;
class QTableView;

namespace downloads {

/// The window of the program: what to download and where to on top, the table of downloads below.
///
/// It holds the queue, the logins and the model together; the downloads end with it.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget* parent = nullptr);
    ~MainWindow() override;

    /// Adds every http or https address in @p text, which are separated by white space. Returns how many.
    int addUrls(const QString& text);

    QString directory() const;
    void setDirectory(const QString& path);
    void setParallelDownloads(int count);
    /// Accepts servers whose certificate cannot be verified. Tokens got before are not shown to such a
    /// server.
    void setAcceptsUnverifiedCertificates(bool accepts);

    DownloadModel& model() { return m_model; }

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void makeActions();
    void makeTable();
    QLayout* makeSourceRow();
    QLayout* makeSettingsRow();
    void chooseDirectory();
    void onAddRequested();
    void updateActions();
    void updateTotals();
    QList<int> selectedRows() const;
    void forSelection(void (DownloadModel::*verb)(int));

    // In the order in which they need each other.
    orv::NetworkQueue m_queue;
    Logins m_logins;
    DownloadModel m_model;

    QLineEdit* const m_urls;
    QLineEdit* const m_directory;
    QSpinBox* const m_parallel;
    QCheckBox* const m_unverified;
    QTableView* const m_table;
    QLabel* const m_totals;
    QAction* m_pause = nullptr;
    QAction* m_resume = nullptr;
    QAction* m_remove = nullptr;
    QAction* m_clearDone = nullptr;
};

} // namespace downloads
