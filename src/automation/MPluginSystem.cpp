#include "automation/MPluginSystem.h"

#include <pybind11/pybind11.h>
#include <wx/dirdlg.h>
#include <wx/filedlg.h>
#include <wx/msgdlg.h>
#include <wx/textdlg.h>

#include <filesystem>

#include "engine/MMediator.h"
#include "engine/MPython.h"
#include "widgets/MGui.h"

namespace py = pybind11;
namespace fs = std::filesystem;

namespace quorvel {

namespace {

bool quietPopups() {
  const char* v = std::getenv("QUORVEL_POPUPS");
  return v && std::string(v) == "log";
}

py::object textOrNone(const wxString& s, bool ok) { return ok ? py::object(py::str(stdText(s))) : py::object(py::none()); }

}  // namespace

void bindPluginUi(void* module) {
  py::module_& m = *static_cast<py::module_*>(module);
  m.def("pluginProgressOpen", [](const std::string& title) { me.ui->openProgress(title); });
  m.def("pluginProgressPulse", [](const std::string& text) { return me.ui->pulseProgress(text); });
  m.def("pluginProgressClose", [] { me.ui->closeProgress(); });
  m.def("pluginYield", [] { me.ui->yield(); });
  m.def("pluginLogWindow", [](const std::string& title, const std::string& text) {
    logInfo(title + ":\n" + text);
    if (quietPopups() || !mainWindow()) return;
    auto* window = new TLogWindow(mainWindow(), wxText(title));
    window->append(wxText(text));
    window->Show();
  });
  m.def(
      "pluginMessageBox",
      [](const std::string& text, const std::string& title, bool exclamation) {
        if (quietPopups() || !mainWindow()) {
          logInfo("Message box '" + title + "': " + text);
          return;
        }
        wxMessageBox(wxText(text), wxText(title), wxOK | (exclamation ? wxICON_EXCLAMATION : 0), mainWindow());
      },
      py::arg("text"), py::arg("title"), py::arg("exclamation") = false);
  m.def("pluginChooseFolder", [](const std::string& title) {
    wxDirDialog dialog(mainWindow(), wxText(title));
    const bool ok = dialog.ShowModal() == wxID_OK;
    return textOrNone(dialog.GetPath(), ok);
  });
  m.def("pluginChooseFile", [](const std::string& title, const std::string& wildcard) {
    wxFileDialog dialog(mainWindow(), wxText(title), "", "", wxText(wildcard), wxFD_OPEN | wxFD_FILE_MUST_EXIST);
    const bool ok = dialog.ShowModal() == wxID_OK;
    return textOrNone(dialog.GetPath(), ok);
  });
  m.def("pluginAskText", [](const std::string& title, const std::string& prompt, const std::string& value) {
    wxTextEntryDialog dialog(mainWindow(), wxText(prompt), wxText(title), wxText(value));
    const bool ok = dialog.ShowModal() == wxID_OK;
    return textOrNone(dialog.GetValue(), ok);
  });
}

std::vector<TPluginMenuRow> pluginMenuRows() {
  std::vector<TPluginMenuRow> rows;
  try {
    if (!me.pluginsystem || me.pluginsystem.isNone()) {
      // The base classes of plug-ins ship beside the scripting module.
      py::module_ sys = py::module_::import("sys");
      py::list path = sys.attr("path");
      const std::string here = (fs::path(me.applicationfolder) / "python").string();
      if (!path.contains(py::str(here))) path.append(here);
      py::object system = py::module_::import("quorvel_plugin").attr("TPluginSystem")("plugins");
      me.pluginsystem = TPyRef::borrow(system.ptr());
    }
    py::object system = py::reinterpret_borrow<py::object>(me.pluginsystem.get());
    for (py::handle plugin : system.attr("plugins")) {
      py::object p = py::reinterpret_borrow<py::object>(plugin);
      TPluginMenuRow row;
      row.name = py::str(p.attr("getName")()).cast<std::string>();
      row.help = py::str(p.attr("getHelpString")()).cast<std::string>();
      row.run = [p, system] {
        const fs::path before = fs::current_path();
        try {
          fs::current_path(py::str(system.attr("folderOf")(p)).cast<std::string>());
          p.attr("activate")();
          fs::current_path(before);
        } catch (...) {
          std::error_code ignored;
          fs::current_path(before, ignored);
          handleException(std::current_exception());
        }
      };
      rows.push_back(std::move(row));
    }
  } catch (const std::exception& e) {
    logError(std::string("Plug-ins: ") + e.what());
  }
  return rows;
}

}  // namespace quorvel
