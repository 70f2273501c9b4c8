// The scene list dialogs: the editor (CapEditDialog), which lists the scenes, edits,
// deletes and batch-captures them, and the task dialog (CapTaskDialog), which edits one
// scene's name, start and end track.
#pragma once

#include "ui/capdlg.h"

struct CapJob;

class CapEditDialog : public CapDialog {
  public:
    // The list view control.
    WindowHandle list_view = nullptr;

  protected:
    void on_init_dialog() override;
    void on_command(WParam wparam, LParam lparam) override;
    void on_notify(LParam lparam) override;

  private:
    // Rows in list order. Each row goes in at the top during a walk from the back, so
    // that row i always stands for the scene at index i.
    void fill();
    // The first selected row, or -1 after telling the user to select one.
    int selected_row();
    void edit_selected();
    void delete_selected();
    void record();
};

class CapTaskDialog : public CapDialog {
  public:
    explicit CapTaskDialog(CapJob* job_) : job(job_) {}

    // The scene being edited; not owned.
    CapJob* job;

  protected:
    void on_init_dialog() override;
    void on_command(WParam wparam, LParam lparam) override;
};
