#include "integration/opencode_plugin.h"

#include <nlohmann/json.hpp>

namespace duskwell::OpencodePlugin {
namespace {

// `__HOOK__` becomes the hook program's path as a JSON (and so JavaScript) string.
constexpr const char* kTemplate = R"js(// Duskwell: tells Duskwell whether this OpenCode is working, waiting for you or idle, so
// that your computer stays awake exactly as long as OpenCode works. Written by
// `duskwell connect opencode`; `duskwell disconnect opencode` removes it. Changes to this
// file are lost when Duskwell connects OpenCode again.
import { spawn } from "node:child_process";

const hook = __HOOK__;
// One record per OpenCode process: its sessions are summed up here.
const record = `${process.pid}-${Date.now()}`;
const busy = new Set();       // sessions at work
const questions = new Map();  // unanswered permission or question id -> session
let folder = "";
let wanted = "SessionStart";
let told = "";
let telling = false;

function summary() {
  if (questions.size > 0) return "UserQuestion";
  return busy.size > 0 ? "SessionBusy" : "SessionIdle";
}

// One hook run at a time, the latest state last: a record never goes back in time.
function tell() {
  if (telling || wanted === told) return;
  telling = true;
  const message = wanted;
  let done = false;
  const finish = () => {
    if (done) return;
    done = true;
    told = message;
    telling = false;
    tell();
  };
  try {
    const child = spawn(hook, ["opencode"], { stdio: ["pipe", "ignore", "ignore"], cwd: folder || undefined });
    child.on("error", finish);
    child.on("close", finish);
    child.stdin.on("error", () => {});
    child.stdin.end(JSON.stringify({ hook_event_name: message, session_id: record, cwd: folder }));
    child.unref();
    setTimeout(() => { try { child.kill(); } catch {} finish(); }, 5000).unref?.();
  } catch {
    finish();
  }
}

function changed() {
  wanted = summary();
  tell();
}

function settle(session) {
  busy.delete(session);
  for (const [id, owner] of questions) if (owner === session) questions.delete(id);
}

function note(event) {
  const p = (event && event.properties) || {};
  switch (event && event.type) {
    case "session.status":
      if (p.status && p.status.type === "idle") settle(p.sessionID);
      else if (p.sessionID) busy.add(p.sessionID);
      break;
    case "session.idle":
    case "session.deleted":
      settle(p.sessionID || (p.info && p.info.id));
      break;
    case "permission.asked":
    case "question.asked":
      if (p.id) questions.set(p.id, p.sessionID);
      break;
    case "permission.replied":
    case "question.replied":
    case "question.rejected":
      questions.delete(p.requestID);
      break;
    default:
      return;
  }
  changed();
}

export const DuskwellPlugin = async (input) => {
  try {
    if (!folder && input && typeof input.directory === "string") folder = input.directory;
    tell();
  } catch {}
  return {
    event: async (arg) => {
      try { note(arg && arg.event); } catch {}
    },
    "tool.execute.before": async (input) => {
      try {
        if (input && input.sessionID) {
          busy.add(input.sessionID);
          changed();
        }
      } catch {}
    },
  };
};
)js";

}  // namespace

std::string source(const std::string& hookPath) {
    std::string text = kTemplate;
    const std::string placeholder = "__HOOK__";
    text.replace(text.find(placeholder), placeholder.size(), nlohmann::json(hookPath).dump());
    return text;
}

}  // namespace duskwell::OpencodePlugin
