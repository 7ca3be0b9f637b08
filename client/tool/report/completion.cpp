// The script that has PowerShell complete this program's commands, options and paths. It
// holds what the tables hold, so that completing starts no program.
#include <string>
#include <string_view>

#include "client/tool/report/command_line.h"

namespace zarn::tool {
namespace {

constexpr char kScriptBegin[] =
    R"(Register-ArgumentCompleter -Native -CommandName 'zarn-update', 'zarn-update.exe' -ScriptBlock {
    param($wordToComplete, $commandAst, $cursorPosition)
)";

// What is wanted next decides: the value of the option before, or an option, or a command,
// or the command's argument. An answer without a word leaves file names to PowerShell, an
// empty word keeps them away.
constexpr char kScriptEnd[] = R"(    $before = @($commandAst.CommandElements | Select-Object -Skip 1 |
        Where-Object { $_.Extent.EndOffset -lt $cursorPosition } | ForEach-Object { $_.Extent.Text })
    $command = $before | Where-Object { $commands.Contains($_) } | Select-Object -First 1
    $previous = $before | Select-Object -Last 1
    $wants = ''
    if ($previous -and $options.Contains($previous)) { $wants = $options[$previous].Wants }
    if (-not $wants) {
        if ($wordToComplete.StartsWith('-')) { $wants = 'Option' }
        elseif ($command) { $wants = $commands[$command].Wants }
        else { $wants = 'Command' }
    }
    if ($wants -eq 'Path') { return }
    $words = @()
    if ($wants -eq 'Command') { $table = $commands; $words = $commands.Keys }
    if ($wants -eq 'Option') {
        $table = $options
        $words = '--json', '--help', '--version'
        if ($command) { $words = $commands[$command].Options }
    }
    $found = @($words | Where-Object { $_.StartsWith($wordToComplete, 'OrdinalIgnoreCase') })
    if ($found.Count -eq 0) { return '' }
    foreach ($word in $found) {
        [System.Management.Automation.CompletionResult]::new($word, $word, 'ParameterValue', $table[$word].Help)
    }
}
)";

/// As a text between single quotation marks, in which nothing but those means anything.
std::string quoted(std::string_view text) {
  std::string result = "'";
  for (const char c : text) {
    result += c;
    if (c == '\'') result += c;
  }
  return result + "'";
}

const char* wantedBy(const Argument& argument) noexcept {
  switch (argument.kind) {
    case Argument::Kind::None:
      return "Option";
    case Argument::Kind::Path:
      return "Path";
    case Argument::Kind::Command:
      return "Command";
    case Argument::Kind::Text:
    case Argument::Kind::Seconds:
      break;
  }
  return "Text";
}

/// Nothing for a flag.
std::string_view wantedBy(const OptionFacts& option) noexcept {
  if (*option.value == '\0') return "";
  return option.option == Option::Logs ? "Path" : "Text";
}

std::string entry(std::string_view name, std::string_view wants, std::string_view help) {
  return "        " + quoted(name) + " = @{ Wants = " + quoted(wants) + "; Help = " + quoted(help);
}

std::string commandEntry(const Command& command) {
  std::string names;
  for (const OptionFacts& option : options())
    if (knows(command, option.option)) names += quoted(option.name) + ", ";
  return entry(command.name, wantedBy(command.argument), command.summary) + "; Options = " + names +
         quoted("--help") + " }\n";
}

}  // namespace

Answer completionAnswer() {
  Answer answer;
  answer.text = kScriptBegin;
  answer.text += "    $commands = [ordered]@{\n";
  for (const Command& command : commands()) answer.text += commandEntry(command);
  answer.text += "    }\n    $options = [ordered]@{\n";
  for (const OptionFacts& option : options())
    answer.text += entry(option.name, wantedBy(option), option.help) + " }\n";
  answer.text +=
      entry("--help", "", "Show the help") + " }\n" + entry("--version", "", "Show the version") + " }\n";
  answer.text += "    }\n";
  answer.text += kScriptEnd;
  answer.json["script"] = answer.text;
  return answer;
}

}  // namespace zarn::tool
