// The script object: compiling through script/, running by sending each statement's event.
#include "rvitunes/helper/AppleScript.h"

#include <utility>
#include <variant>
#include <vector>

#include "helper/script/ScriptCompiler.h"
#include "helper/script/ScriptLexer.h"
#include "rvitunes/ae/EventManager.h"
#include "rvitunes/base/OSStatus.h"

namespace rvitunes {

struct AppleScript::Program {
  std::vector<script::Statement> statements;
};

namespace {

// The text a failure without its own message gets.
std::string standardText(OSStatus number, std::string_view command) {
  switch (number) {
    case procNotFound:
      return "Application isn't running.";
    case connectionInvalid:
      return "Connection is invalid.";
    case errAETimeout:
      return "AppleEvent timed out.";
    case errAEEventNotHandled:
      return "It doesn't understand the \"" + std::string(command) + "\" message.";
    case errAENoSuchObject:
      return "Can't get the object.";
    case errAECorruptData:
      return "The reply cannot be read.";
    default:
      break;
  }
  const std::string_view name = osStatusName(number);
  return "Error " + std::to_string(number) + (name.empty() ? "" : " (" + std::string(name) + ")") +
         ".";
}

// The reply's 'errs' as UTF-8, or "".
std::string replyErrorText(const ae::Descriptor& reply) {
  ae::Descriptor text;
  if (reply.getParamDesc(ae::keyErrorString, ae::typeUTF8Text, &text) != noErr) return "";
  return std::string(reinterpret_cast<const char*>(text.data().data()), text.dataSize());
}

// The running application named `name`: the exact name first, then ignoring ASCII case.
const ae::RunningApplication* findApplication(const std::vector<ae::RunningApplication>& running,
                                              std::string_view name) {
  for (const auto& app : running) {
    if (app.name == name) return &app;
  }
  for (const auto& app : running) {
    if (script::equalsIgnoringCase(app.name, name)) return &app;
  }
  return nullptr;
}

void fail(AppleScriptError* error, OSStatus number, std::string application, std::string text,
          const script::Statement& statement) {
  if (error == nullptr) return;
  error->number = number;
  error->message = application + " got an error: " + text;
  error->application = std::move(application);
  error->offset = statement.offset;
  error->length = statement.length;
}

// Sends the statement's event; on success *result is the reply's '----' (or null).
bool runStatement(ae::EventManager& manager, long timeoutTicks, const script::Statement& statement,
                  ae::Descriptor* result, AppleScriptError* error) {
  const bool viaSystemEvents = statement.kind == script::StatementKind::kSetProcessVisible;
  const std::string_view command = script::commandName(statement.kind);
  const std::vector<ae::RunningApplication> running = manager.runningApplications();
  const ae::RunningApplication* app =
      findApplication(running, viaSystemEvents ? statement.process : statement.application);
  if (app == nullptr) {
    if (viaSystemEvents) {
      fail(error, errAENoSuchObject, std::string(kSystemEventsName),
           "Can't get process \"" + statement.process + "\".", statement);
    } else {
      fail(error, procNotFound, statement.application, standardText(procNotFound, command),
           statement);
    }
    return false;
  }
  const std::string offender = viaSystemEvents ? std::string(kSystemEventsName) : app->name;
  const ae::Descriptor target = ae::Descriptor::makeCode(ae::typeApplSignature, app->signature);
  const ae::Descriptor event = script::makeStatementEvent(statement, target);
  ae::Descriptor reply;
  const OSStatus sent =
      manager.send(event, &reply, ae::kAEWaitReply | ae::kAECanInteract, timeoutTicks);
  if (sent != noErr) {
    fail(error, sent, offender, standardText(sent, command), statement);
    return false;
  }
  int32_t number = 0;
  (void)reply.getParamPtr(ae::keyErrorNumber, ae::typeSInt32, nullptr, &number, sizeof number,
                          nullptr);
  if (number != noErr) {
    std::string text = replyErrorText(reply);
    fail(error, number, offender, text.empty() ? standardText(number, command) : std::move(text),
         statement);
    return false;
  }
  const ae::Descriptor* direct = reply.findParam(ae::keyDirectObject);
  *result = direct != nullptr ? direct->duplicate() : ae::Descriptor();
  return true;
}

}  // namespace

AppleScript::AppleScript(std::string source) : AppleScript(std::move(source), Options{}) {}

AppleScript::AppleScript(std::string source, Options options)
    : source_(std::move(source)), options_(options) {}

AppleScript::~AppleScript() = default;

size_t AppleScript::statementCount() const {
  return program_ ? program_->statements.size() : 0;
}

bool AppleScript::compile(AppleScriptError* error) {
  if (program_) return true;
  auto compiled = script::compileScript(source_);
  if (auto* failure = std::get_if<script::CompileError>(&compiled)) {
    if (error != nullptr) {
      *error = AppleScriptError{failure->number, std::move(failure->message), "", failure->offset,
                                failure->length};
    }
    return false;
  }
  program_ = std::make_unique<Program>();
  program_->statements = std::move(std::get<std::vector<script::Statement>>(compiled));
  return true;
}

std::shared_ptr<ae::Descriptor> AppleScript::executeAndReturnError(AppleScriptError* error) {
  if (!compile(error)) return nullptr;
  ae::EventManager& manager =
      options_.eventManager != nullptr ? *options_.eventManager : ae::EventManager::shared();
  ae::Descriptor result;
  for (const script::Statement& statement : program_->statements) {
    if (!runStatement(manager, options_.timeoutTicks, statement, &result, error)) return nullptr;
  }
  return std::make_shared<ae::Descriptor>(std::move(result));
}

}  // namespace rvitunes
