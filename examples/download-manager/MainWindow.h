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

/// The window of the program: the URL and target fields at the top, the table of downloads below.
///
/// It owns the queue, the logins and the model; destroying it ends the downloads.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget* parent = nullptr);
    ~MainWindow() override;

    /// Adds every http or https URL in @p text, where they are separated by white space. Returns how many.
    int addUrls(const QString& text);

    QString directory() const;
    void setDirectory(const QString& path);
    void setParallelDownloads(int count);
    /// Accepts servers whose certificate cannot be verified. Tokens from before are discarded, so that they
    /// are not sent to such a server.
    void setAcceptsUnverifiedCertificates(bool accepts);

    DownloadModel& model() { return m_model; }

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void makeActions();
    void makeTable();
    void makeContent();
    QLayout* makeSourceRow();
    QLayout* makeSettingsRow();
    void chooseDirectory();
    void onAddRequested();
    void updateActions();
    void updateTotals();
    QList<int> selectedRows() const;
    void forSelection(void (DownloadModel::*verb)(int));

    // In the order in which they depend on each other.
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
