#include "docs.h"

#include <ostream>
#include <string>
#include <vector>

#include "command.h"

namespace tabulon::cli {

namespace {

// Text for roff: a leading "." or "'" would start a request, "\" an escape.
std::string Roff(const std::string& text) {
  std::string out;
  bool line_start = true;
  for (const char c : text) {
    if (line_start && (c == '.' || c == '\'')) out += "\\&";
    if (c == '\\') {
      out += "\\e";
    } else if (c == '-') {
      out += "\\-";
    } else {
      out += c;
    }
    line_start = c == '\n';
    // Each line of a description stays a line of its own.
    if (c == '\n') out += ".br\n";
  }
  return out;
}

std::vector<CLI::App*> Visible(CLI::App& app) {
  std::vector<CLI::App*> commands;
  for (CLI::App* sub : app.get_subcommands({})) {
    if (!sub->get_group().empty()) commands.push_back(sub);
  }
  return commands;
}

std::string Synopsis(CLI::App& command) {
  std::string text = command.get_name();
  if (!command.get_options([](const CLI::Option* o) { return o->nonpositional(); }).empty()) text += " [options]";
  for (const CLI::Option* o : command.get_options([](const CLI::Option* o) { return o->get_positional(); })) {
    std::string word = o->get_name();
    for (char& c : word) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (o->get_expected_max() > 1) word += "...";
    text += o->get_required() ? " " + word : " [" + word + "]";
  }
  return text;
}

void Man(CLI::App& app, std::ostream& out) {
  out << ".TH TABULON 1 \"\" \"tabulon " << TABULON_VERSION << "\" \"User Commands\"\n"
      << ".SH NAME\ntabulon \\- " << Roff("jobs on spreadsheet and delimited text files") << "\n"
      << ".SH SYNOPSIS\n.B tabulon\n[\\-\\-server\n.IR socket ]\n.I command\n[options] [arguments]\n"
      << ".SH DESCRIPTION\n"
      << Roff(
             "Where a command runs a method of the control by another name, the method is named in "
             "brackets at the end of its description. Standard output carries data (created files, sheet names, "
             "answers; with --json one "
             "JSON object), standard error the failures, as \"tabulon: command: code message\" naming the file. "
             "A path \"-\" reads standard input or writes standard output where a command reads or writes text. "
             "Characters (delimiters, replacements) are given as the character, a name (tab, space, comma, "
             "semicolon, pipe), \\t, or a code (9, 0x09).")
      << "\n.SH COMMANDS\n";
  for (CLI::App* command : Visible(app)) {
    out << ".SS " << Roff(Synopsis(*command)) << "\n" << Roff(command->get_description()) << "\n";
    if (!command->get_footer().empty()) out << ".PP\n" << Roff(command->get_footer()) << "\n";
    for (const CLI::Option* o : command->get_options()) {
      if (o->get_lnames() == std::vector<std::string>{"help"} || o->get_group().empty()) continue;
      std::string name = o->get_positional() ? o->get_name() : o->get_name(false, true);
      if (o->get_positional()) {
        for (char& c : name) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
      }
      out << ".TP\n.B " << Roff(name) << "\n" << Roff(o->get_description()) << "\n";
    }
  }
  out << ".SH EXIT STATUS\n0 success; 1 a failure the command reports (a negative result code); 2 a usage "
         "error.\n"
      << ".SH ENVIRONMENT\n"
      << Roff(
             "TABULON_INPUT_PASSWORD, TABULON_INPUT_PASSWORD_TW, TABULON_OUTPUT_PASSWORD, "
             "TABULON_OUTPUT_PASSWORD_TW: the passwords of the commands that take them, kept out of the "
             "process list.\nTABULON_SERVER: the socket of a running tabulon serve; every command but help, "
             "serve, status and pick runs there and prints what it prints here (as --server does). A server "
             "that cannot be reached is a failure.")
      << "\n";
}

void Bash(CLI::App& app, std::ostream& out) {
  out << "# bash completion for tabulon, written from its command table\n"
      << "_tabulon() {\n"
      << "  local cur=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[1]}\n"
      << "  if [[ $COMP_CWORD -eq 1 ]]; then\n"
      << "    COMPREPLY=($(compgen -W \"";
  for (CLI::App* command : Visible(app)) out << command->get_name() << " ";
  out << "--help --version --server\" -- \"$cur\"))\n    return\n  fi\n  local options=\n  case \"$command\" in\n";
  for (CLI::App* command : Visible(app)) {
    out << "    " << command->get_name() << ") options=\"";
    for (const CLI::Option* o :
         command->get_options([](const CLI::Option* o) { return o->nonpositional() && !o->get_group().empty(); })) {
      for (const std::string& l : o->get_lnames()) out << "--" << l << " ";
      for (const std::string& s : o->get_snames()) out << "-" << s << " ";
    }
    out << "\" ;;\n";
  }
  out << "  esac\n"
      << "  if [[ $command == help && $COMP_CWORD -eq 2 ]]; then\n"
      << "    COMPREPLY=($(compgen -W \"";
  for (CLI::App* command : Visible(app)) out << command->get_name() << " ";
  out << "\" -- \"$cur\"))\n"
      << "  elif [[ $cur == -* ]]; then\n"
      << "    COMPREPLY=($(compgen -W \"$options\" -- \"$cur\"))\n"
      << "  else\n"
      << "    COMPREPLY=($(compgen -f -- \"$cur\"))\n"
      << "  fi\n"
      << "}\n"
      << "complete -o filenames -F _tabulon tabulon\n";
}

}  // namespace

int WriteDocs(CLI::App& app, const std::string& kind, std::ostream& out) {
  if (kind == "man") {
    Man(app, out);
  } else {
    Bash(app, out);
  }
  return kExitSuccess;
}

}  // namespace tabulon::cli
