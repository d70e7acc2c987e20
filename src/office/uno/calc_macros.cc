// Application.Run: Basic macros of the open workbooks.
#include <cctype>
#include <cstring>

#include <com/sun/star/beans/XPropertySet.hpp>
#include <com/sun/star/container/XNameAccess.hpp>
#include <com/sun/star/container/XNameContainer.hpp>
#include <com/sun/star/frame/XFramesSupplier.hpp>
#include <com/sun/star/frame/XModel.hpp>
#include <com/sun/star/script/XLibraryContainer.hpp>
#include <com/sun/star/script/provider/XScript.hpp>
#include <com/sun/star/script/provider/XScriptProvider.hpp>
#include <com/sun/star/script/provider/XScriptProviderSupplier.hpp>
#include <com/sun/star/util/XModifiable.hpp>

#include "office/uno/calc_application.h"
#include "office/uno/calc_internal.h"
#include "office/uno/calc_workbook.h"

namespace tabulon::office::uno {

namespace {

// Whether Basic source declares a Sub or Function of that name.
bool DeclaresProcedure(const std::string& source, const std::string& name) {
  const std::string text = Lower(source);
  const std::string wanted = Lower(name);
  for (const char* keyword : {"sub ", "function "}) {
    for (size_t at = text.find(keyword); at != std::string::npos; at = text.find(keyword, at + 1)) {
      if (at > 0 && !std::isspace(static_cast<unsigned char>(text[at - 1]))) continue;
      size_t p = at + std::strlen(keyword);
      while (p < text.size() && text[p] == ' ') ++p;
      if (text.compare(p, wanted.size(), wanted) != 0) continue;
      const size_t end = p + wanted.size();
      if (end == text.size() || !(std::isalnum(static_cast<unsigned char>(text[end])) || text[end] == '_'))
        return true;
    }
  }
  return false;
}

std::vector<std::string> SplitDots(const std::string& s) {
  std::vector<std::string> parts(1);
  for (char c : s) {
    if (c == '.')
      parts.emplace_back();
    else
      parts.back() += c;
  }
  return parts;
}

constexpr const char* kRan = "ran";

// Basic's statements that a procedure's name could be mistaken for.
bool IsStatement(const std::string& name) {
  static const char* const kStatements[] = {
      "beep",   "call", "close",     "const",    "date",  "declare", "dim",    "do",    "end",   "erase",
      "error",  "exit", "for",       "function", "get",   "gosub",   "goto",   "if",    "input", "kill",
      "let",    "line", "lock",      "lset",     "mid",   "mkdir",   "name",   "on",    "open",  "option",
      "print",  "put",  "randomize", "redim",    "reset", "resume",  "return", "rmdir", "rset",  "seek",
      "select", "set",  "stop",      "sub",      "time",  "unlock",  "while",  "width", "with",  "write"};
  const std::string lower = Lower(name);
  for (const char* statement : kStatements)
    if (lower == statement) return true;
  return false;
}

// The office reports a Basic or VBA error (a run-time error, a missing
// procedure called inside the macro) only in a dialog, which never shows in
// an office without a window: the macro would simply return. It is run
// instead through a function added at the end of the macro's own module,
// whose error handler catches what the macro does not and returns the
// error's number and text, and which returns kRan when the macro ended well.
// Being in the same module, the function runs only when the module's code
// compiles (nothing comes back otherwise), and when another module of the
// library does not compile, the office ends the call silently (the
// function's empty default comes back). The module's code is put back at
// once, and the workbook's modified flag left as the macro left it.
class TrappedRun {
 public:
  TrappedRun(CalcWorkbook& book, const Reference<css::container::XNameAccess>& modules, const OUString& module,
             const std::string& procedure, size_t argument_count)
      : modifiable_(book.component(), UNO_QUERY), modules_(modules, UNO_QUERY), module_(module) {
    if (!modules_.is() || !modifiable_.is() || !(modules_->getByName(module_) >>= original_)) return;
    const std::string code = ToUtf8(original_);
    while (DeclaresProcedure(code, function_)) function_ += "_";
    std::string parameters, pass;
    for (size_t i = 1; i <= argument_count; ++i) {
      parameters += (i > 1 ? ", " : "") + std::string("a") + std::to_string(i) + " As String";
      pass += (i > 1 ? ", " : "") + std::string("a") + std::to_string(i);
    }
    // A procedure named like a statement (Put, Open) is called with its
    // module's name, so that it is still a call; others without it, since a
    // module may be named like a library of the office (Tools), which the
    // name would then mean.
    const std::string callee = IsStatement(procedure) ? ToUtf8(module_) + "." + procedure : procedure;
    const std::string trap = "\nFunction " + function_ + "(" + parameters + ") As String\n" +
                             "  On Error GoTo failed\n" + "  Call " + callee + "(" + pass + ")\n  " + function_ +
                             " = \"" + kRan +
                             "\"\n"
                             "  Exit Function\n"
                             "failed:\n  " +
                             function_ + " = \"error \" & Err & \": \" & Error$\n" + "End Function\n";
    const bool modified = modifiable_->isModified();
    try {
      modules_->replaceByName(module_, Any(original_ + ToOUString(trap)));
    } catch (const css::uno::Exception&) {
      return;  // a read-only library: the macro runs without the trap
    }
    modifiable_->setModified(modified);
    replaced_ = true;
  }
  ~TrappedRun() {
    try {
      Remove();
    } catch (...) {
    }
  }
  bool ready() const { return replaced_; }
  const std::string& function() const { return function_; }
  void Remove() {
    if (!replaced_) return;
    replaced_ = false;
    const bool modified = modifiable_->isModified();
    modules_->replaceByName(module_, Any(original_));
    modifiable_->setModified(modified);
  }

 private:
  Reference<css::util::XModifiable> modifiable_;
  Reference<css::container::XNameContainer> modules_;
  OUString module_;
  OUString original_;
  std::string function_ = "TabulonRun";
  bool replaced_ = false;
};

}  // namespace

void CalcApplication::Run(const std::string& macro, const std::vector<std::string>& arguments) {
  Call("Application.Run", [&] {
    if (arguments.size() > 8) throw Error(ErrorKind::kAutomation, "Run takes at most eight arguments");
    // "'Book.xls'!Module.Macro" or "Book.xls!Macro" names the workbook;
    // otherwise the active workbook is searched first, then the others.
    std::string name = macro;
    std::vector<CalcWorkbook*> books;
    const size_t bang = macro.rfind('!');
    if (bang != std::string::npos) {
      std::string book_name = macro.substr(0, bang);
      if (book_name.size() >= 2 && book_name.front() == '\'' && book_name.back() == '\'')
        book_name = book_name.substr(1, book_name.size() - 2);
      name = macro.substr(bang + 1);
      for (CalcWorkbook* b : open_)
        if (Lower(b->Name()) == Lower(book_name)) books.push_back(b);
    } else {
      if (active_ != nullptr) books.push_back(active_);
      for (CalcWorkbook* b : open_)
        if (b != active_) books.push_back(b);
    }
    const auto parts = SplitDots(name);
    if (parts.empty() || parts.size() > 3 || parts.back().empty())
      throw Error(ErrorKind::kAutomation, "not a macro name: " + macro);
    // A macro may change any open workbook.
    for (CalcWorkbook* b : open_) b->set_plain(false);
    for (CalcWorkbook* book : books) {
      Reference<css::beans::XPropertySet> props(book->component(), UNO_QUERY);
      if (!props.is()) continue;
      Reference<css::script::XLibraryContainer> libraries;
      try {
        props->getPropertyValue("BasicLibraries") >>= libraries;
      } catch (const css::uno::Exception&) {
      }
      Reference<css::container::XNameAccess> library_names(libraries, UNO_QUERY);
      if (!library_names.is()) continue;
      for (const auto& library : library_names->getElementNames()) {
        if (parts.size() == 3 && !EqualsIgnoreCase(library, parts[0])) continue;
        libraries->loadLibrary(library);
        Reference<css::container::XNameAccess> modules(library_names->getByName(library), UNO_QUERY);
        if (!modules.is()) continue;
        for (const auto& module : modules->getElementNames()) {
          if (parts.size() >= 2 && !EqualsIgnoreCase(module, parts[parts.size() - 2])) continue;
          OUString source;
          modules->getByName(module) >>= source;
          if (!DeclaresProcedure(ToUtf8(source), parts.back())) continue;
          Reference<css::script::provider::XScriptProviderSupplier> supplier(book->component(), UNO_QUERY_THROW);
          const std::string url = "vnd.sun.star.script:" + ToUtf8(library) + "." + ToUtf8(module) + "." + parts.back() +
                                  "?language=Basic&location=document";
          auto script = supplier->getScriptProvider()->getScript(ToOUString(url));
          // Macros reach their workbook as ThisComponent, the office's
          // current document: a hidden document becomes it only through its
          // frame.
          book->EnsureView();
          Reference<css::frame::XModel> model(book->component(), UNO_QUERY);
          if (model.is() && model->getCurrentController().is()) {
            auto frame = model->getCurrentController()->getFrame();
            Reference<css::frame::XFramesSupplier> frames(session_->desktop(), UNO_QUERY);
            if (frame.is() && frames.is()) {
              frames->setActiveFrame(frame);
              frame->activate();
            }
          }
          std::vector<Any> args;
          for (const auto& a : arguments) args.push_back(Any(ToOUString(a)));
          Sequence<sal_Int16> out_index;
          Sequence<Any> out_params;
          TrappedRun trap(*book, modules, module, parts.back(), arguments.size());
          if (!trap.ready()) {
            script->invoke(ToSequence(args), out_index, out_params);
            return;
          }
          const std::string wrapper = "vnd.sun.star.script:" + ToUtf8(library) + "." + ToUtf8(module) + "." +
                                      trap.function() + "?language=Basic&location=document";
          OUString failure;
          const Any result = supplier->getScriptProvider()
                                 ->getScript(ToOUString(wrapper))
                                 ->invoke(ToSequence(args), out_index, out_params);
          trap.Remove();
          if (!(result >>= failure) || failure.isEmpty())
            throw Error(ErrorKind::kAutomation, "the macro '" + macro +
                                                    "' did not run: the code of its library cannot be "
                                                    "compiled");
          if (ToUtf8(failure) != kRan)
            throw Error(ErrorKind::kAutomation, "the macro '" + macro + "' failed: " + ToUtf8(failure));
          return;
        }
      }
    }
    throw Error(ErrorKind::kAutomation, "the macro '" + macro + "' cannot be found");
  });
}

}  // namespace tabulon::office::uno
