// The window's project files (open, save, save as, the question about unsaved changes) and its export.

#include <QFileDialog>
#include <QMessageBox>

#include "export_dialog.hpp"
#include "morvane/app/export/export_runner.hpp"
#include "morvane/app/project/project_bundle_io.hpp"
#include "studio_window.hpp"

namespace morvane::studio {

namespace fs = std::filesystem;

namespace {

std::string reasonOf(std::exception_ptr failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "unknown error";
    }
}

}  // namespace

void StudioWindow::openProject(const fs::path& bundle) {
    if (isWorking()) {
        session_.setError("Wait for the running task to finish (or cancel it) before opening a project.");
        return;
    }
    if (!settleUnsavedChanges("opening another project")) return;
    player_.pause();
    const std::string name = bundle.filename().string();
    guarded([&] {
        track(app::ProjectBundleIO::loadInBackground(
            session_, fs::absolute(bundle), loop_, {.recentProjects = &recentProjects_},
            [this, name](std::exception_ptr failure) {
                if (failure) {
                    session_.setError("Couldn’t open " + name + ": " + reasonOf(failure));
                } else {
                    waveforms_.scheduleAll(session_);
                }
            }));
    });
}

void StudioWindow::saveProject() {
    if (session_.projectURL) {
        saveProjectAs(*session_.projectURL);
    } else {
        chooseAndSaveAs();
    }
}

void StudioWindow::saveProjectAs(const fs::path& bundle) {
    if (!session_.hasProject()) return;
    const fs::path url = app::ProjectBundleIO::normalizedProjectURL(fs::absolute(bundle));
    // Refused at once while another open or save runs.
    guarded([&] {
        track(app::ProjectBundleIO::saveInBackground(
            session_, url, loop_, {.recentProjects = &recentProjects_},
            [this, url](std::exception_ptr failure) {
                if (failure) {
                    session_.setError("Couldn’t save " + url.filename().string() + ": " + reasonOf(failure));
                } else {
                    session_.setSuccess("Saved " + url.filename().string() + ".");
                }
            }));
    });
}

void StudioWindow::chooseAndOpen() {
    const QString chosen = QFileDialog::getExistingDirectory(
        this, QStringLiteral("Open Project"),
        QString::fromStdString(app::ProjectBundleIO::defaultProjectsDirectory().string()));
    if (!chosen.isEmpty()) openProject(chosen.toStdString());
}

std::optional<fs::path> StudioWindow::chooseBundle() {
    const fs::path suggested = app::ProjectBundleIO::defaultProjectsDirectory() / session_.projectName;
    const QString chosen =
        QFileDialog::getSaveFileName(this, QStringLiteral("Save Project"), QString::fromStdString(suggested),
                                     QStringLiteral("Morvane projects (*.morvane)"));
    if (chosen.isEmpty()) return std::nullopt;
    return fs::path(chosen.toStdString());
}

void StudioWindow::chooseAndSaveAs() {
    if (!session_.hasProject()) return;
    if (const auto bundle = chooseBundle()) saveProjectAs(*bundle);
}

void StudioWindow::chooseAndExport() {
    if (!session_.hasProject() || isWorking()) return;
    ExportDialog dialog(session_, this);
    if (dialog.exec() != QDialog::Accepted) return;
    const app::ExportRequest request = dialog.request();
    const fs::path folder = session_.projectURL ? session_.projectURL->parent_path()
                                                : app::ProjectBundleIO::defaultProjectsDirectory();
    const QString chosen = QFileDialog::getSaveFileName(
        this, QStringLiteral("Export"),
        QString::fromStdString(
            (folder / app::ExportSettings::suggestedFilename(session_, request.videoSettings)).string()));
    if (!chosen.isEmpty()) exportTo(request, chosen.toStdString());
}

void StudioWindow::exportTo(const app::ExportRequest& request, const fs::path& movie) {
    player_.pause();
    track(app::ExportRunner::run(session_, request, fs::absolute(movie), pipelineContext()));
}

bool StudioWindow::settleUnsavedChanges(const std::string& action) {
    if (!session_.hasProject() || !session_.hasUnsavedChanges()) return true;
    QMessageBox question(
        QMessageBox::Warning, QStringLiteral("Unsaved Changes"),
        QString::fromStdString("Save the changes to " + session_.projectName + " before " + action + "?"),
        QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel, this);
    question.setInformativeText(QStringLiteral("Your changes are lost if you don’t save them."));
    question.setDefaultButton(QMessageBox::Save);
    const int answer = question.exec();
    if (answer == QMessageBox::Discard) return true;
    if (answer != QMessageBox::Save) return false;

    // Saved here and now, since what follows replaces the project or closes the window.
    const auto url = session_.projectURL ? session_.projectURL : chooseBundle();
    if (!url) return false;
    try {
        app::ProjectBundleIO::save(session_, *url, {.recentProjects = &recentProjects_});
    } catch (const std::exception& error) {
        session_.setError("Couldn’t save " + url->filename().string() + ": " + error.what());
        return false;
    }
    return true;
}

}  // namespace morvane::studio
