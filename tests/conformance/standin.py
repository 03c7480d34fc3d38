"""Loopback stand-ins for the agents' model APIs, and a proxy that refuses everything.

Claude Code talks to the Messages API, Codex to the Responses API, OpenCode to OpenAI's
chat/completions (both on the "openai" server) and Gemini CLI to the Gemini API.
The model answers are driven by the user's prompt: a prompt holding RUN<<command>> is
answered with one shell tool call running that command (ASK<<command>> asks Codex for an
escalated, unsandboxed run, which it must approve), and once the tool's result comes back
with a short final text. Every other request (titles, token counts, model lists, Gemini's
model router) gets a plain, sensible answer. Each server appends one JSON line per request
to its log.
"""

import argparse
import http.server
import json
import os
import re
import socketserver
import sys
import threading
import time

DIRECTIVE = re.compile(r"(RUN|ASK)<<(.*?)>>", re.S)


class Server(socketserver.ThreadingMixIn, http.server.HTTPServer):
    daemon_threads = True
    allow_reuse_address = True


def _log(path, record):
    record["t"] = round(time.time(), 3)
    with open(path, "a") as f:
        f.write(json.dumps(record) + "\n")


class _Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    log_path = None

    def log_message(self, *args):
        pass

    def _body(self):
        n = int(self.headers.get("Content-Length") or 0)
        raw = self.rfile.read(n) if n else b""
        try:
            return json.loads(raw) if raw else {}
        except ValueError:
            return {}

    def _send_json(self, obj, status=200):
        data = json.dumps(obj).encode()
        self.send_response(status)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def _start_sse(self):
        self.send_response(200)
        self.send_header("Content-Type", "text/event-stream")
        self.send_header("Cache-Control", "no-cache")
        self.send_header("Connection", "close")
        self.end_headers()
        self.close_connection = True

    def _event(self, name, obj):
        self.wfile.write(f"event: {name}\ndata: {json.dumps(obj)}\n\n".encode())
        self.wfile.flush()

    def do_GET(self):
        _log(self.log_path, {"method": "GET", "path": self.path})
        self.get()

    def do_HEAD(self):
        _log(self.log_path, {"method": "HEAD", "path": self.path})
        self.send_response(200)
        self.send_header("Content-Length", "0")
        self.end_headers()

    def do_POST(self):
        body = self._body()
        rec = {"method": "POST", "path": self.path, "summary": self.summary(body)}
        _log(self.log_path, rec)
        if os.environ.get("STANDIN_DUMP"):
            _log(self.log_path + ".bodies", {"path": self.path, "body": body})
        self.post(body)

    def get(self):
        self._send_json({})

    def summary(self, body):
        return {}


def _texts(content):
    if isinstance(content, str):
        return [content]
    out = []
    for block in content or []:
        if isinstance(block, dict):
            if block.get("type") in ("text", "input_text", "output_text"):
                out.append(block.get("text", ""))
    return out


class Anthropic(_Handler):
    """The Messages API as Claude Code uses it."""

    def get(self):
        if self.path.startswith("/v1/models"):
            self._send_json({"data": [], "has_more": False, "first_id": None, "last_id": None})
        else:
            self._send_json({})

    def _decide(self, body):
        tools = {t.get("name") for t in body.get("tools") or [] if isinstance(t, dict)}
        # Newer clients append system-role messages after the user's; the turn is decided
        # by the last user message.
        users = [m for m in body.get("messages") or [] if m.get("role") == "user"]
        last = users[-1] if users else {}
        content = last.get("content")
        # A prompt typed after an interrupted tool shares its message with that tool's
        # result, so the prompt's text decides before the result does.
        m = None
        for text in _texts(content):
            m = DIRECTIVE.search(text) or m
        if m and "Bash" in tools:
            return ("tool", m.group(2))
        if isinstance(content, list) and any(
                isinstance(b, dict) and b.get("type") == "tool_result" for b in content):
            return ("text", "Done: the command finished.")
        return ("text", "Stand-in title" if not tools else "OK.")

    def summary(self, body):
        kind, arg = self._decide(body) if "messages" in body else ("none", "")
        return {"model": body.get("model"), "stream": body.get("stream"),
                "tools": len(body.get("tools") or []), "answer": kind, "arg": arg}

    def post(self, body):
        if "count_tokens" in self.path:
            return self._send_json({"input_tokens": 42})
        if not self.path.startswith("/v1/messages"):
            return self._send_json({})
        kind, arg = self._decide(body)
        model = body.get("model", "claude-stand-in")
        mid = f"msg_{int(time.time() * 1000)}"
        if kind == "tool":
            block = {"type": "tool_use", "id": f"toolu_{mid}", "name": "Bash",
                     "input": {"command": arg, "description": "Run the requested command"}}
            stop = "tool_use"
        else:
            block = {"type": "text", "text": arg}
            stop = "end_turn"
        usage = {"input_tokens": 12, "output_tokens": 8,
                 "cache_creation_input_tokens": 0, "cache_read_input_tokens": 0}
        if not body.get("stream"):
            return self._send_json({"id": mid, "type": "message", "role": "assistant",
                                    "model": model, "content": [block], "stop_reason": stop,
                                    "stop_sequence": None, "usage": usage})
        self._start_sse()
        self._event("message_start", {"type": "message_start", "message": {
            "id": mid, "type": "message", "role": "assistant", "model": model, "content": [],
            "stop_reason": None, "stop_sequence": None, "usage": usage}})
        if kind == "tool":
            start = dict(block, input={})
            self._event("content_block_start",
                        {"type": "content_block_start", "index": 0, "content_block": start})
            self._event("content_block_delta", {"type": "content_block_delta", "index": 0,
                        "delta": {"type": "input_json_delta",
                                  "partial_json": json.dumps(block["input"])}})
        else:
            self._event("content_block_start", {"type": "content_block_start", "index": 0,
                        "content_block": {"type": "text", "text": ""}})
            self._event("content_block_delta", {"type": "content_block_delta", "index": 0,
                        "delta": {"type": "text_delta", "text": arg}})
        self._event("content_block_stop", {"type": "content_block_stop", "index": 0})
        self._event("message_delta", {"type": "message_delta",
                    "delta": {"stop_reason": stop, "stop_sequence": None},
                    "usage": {"output_tokens": 8}})
        self._event("message_stop", {"type": "message_stop"})


class OpenAI(_Handler):
    """The Responses API as Codex uses it, and chat/completions as OpenCode uses it."""

    def get(self):
        if "/models" in self.path:
            self._send_json({"object": "list", "data": [], "models": []})
        elif self.path.startswith("/npm/"):
            # OpenCode's package install, pointed here by an .npmrc: no such package.
            self._send_json({"error": "not found"}, 404)
        else:
            self._send_json({})

    def _chat(self):
        return self.path.rstrip("/").endswith("/chat/completions")

    def _decide(self, body):
        items = body.get("input") or []
        if items and isinstance(items[-1], dict) and items[-1].get("type") in (
                "function_call_output", "custom_tool_call_output"):
            return ("text", "Done: the command finished.", None)
        tools = [t for t in body.get("tools") or [] if isinstance(t, dict)]
        names = [t.get("name") for t in tools]
        last_user = None
        for item in items:
            if isinstance(item, dict) and item.get("role") == "user":
                last_user = item
        if last_user is not None and items and items[-1] is last_user:
            m = None
            for text in _texts(last_user.get("content")):
                m = DIRECTIVE.search(text) or m
            if m:
                for name in ("shell_command", "exec_command", "shell"):
                    if name in names:
                        return ("tool", m.group(2), (name, m.group(1) == "ASK"))
        return ("text", "OK.", None)

    def summary(self, body):
        if self._chat():
            kind, arg = self._decide_chat(body)
            return {"model": body.get("model"), "stream": body.get("stream"),
                    "tools": len(body.get("tools") or []), "answer": kind, "arg": arg}
        kind, arg, tool = self._decide(body)
        return {"model": body.get("model"), "stream": body.get("stream"),
                "tools": [t.get("name") for t in body.get("tools") or [] if isinstance(t, dict)],
                "answer": kind, "arg": arg, "tool": tool}

    def _call(self, arg, tool):
        name, escalate = tool
        if name == "shell":
            args = {"command": ["bash", "-lc", arg]}
        elif name == "exec_command":
            # Without a long yield Codex hands the model a still-running "background
            # terminal" after 10 s and the turn ends while the command works on.
            args = {"cmd": arg, "yield_time_ms": 120000}
        else:
            args = {"command": arg}
        if escalate:
            args["sandbox_permissions"] = "require_escalated"
            args["justification"] = "The stand-in needs this command to run outside the sandbox."
        return {"type": "function_call", "id": f"fc_{int(time.time() * 1000)}",
                "call_id": f"call_{int(time.time() * 1000)}", "name": name,
                "arguments": json.dumps(args), "status": "completed"}

    def _decide_chat(self, body):
        msgs = body.get("messages") or []
        last = msgs[-1] if msgs else {}
        if last.get("role") == "tool":
            return ("text", "Done: the command finished.")
        tools = [(t.get("function") or {}).get("name") for t in body.get("tools") or []
                 if isinstance(t, dict)]
        if last.get("role") == "user" and "bash" in tools:
            m = None
            for text in _texts(last.get("content")):
                m = DIRECTIVE.search(text) or m
            if m:
                return ("tool", m.group(2))
        return ("text", "OK.")

    def _chat_answer(self, body):
        kind, arg = self._decide_chat(body)
        cid = f"chatcmpl-{int(time.time() * 1000)}"
        if kind == "tool":
            delta = {"role": "assistant", "tool_calls": [{
                "index": 0, "id": f"call_{int(time.time() * 1000)}", "type": "function",
                "function": {"name": "bash", "arguments": json.dumps(
                    {"command": arg, "description": "Run the requested command"})}}]}
            finish = "tool_calls"
        else:
            delta = {"role": "assistant", "content": arg}
            finish = "stop"
        usage = {"prompt_tokens": 12, "completion_tokens": 8, "total_tokens": 20}
        if not body.get("stream"):
            message = {"role": "assistant", "content": delta.get("content"),
                       "tool_calls": delta.get("tool_calls")}
            return self._send_json({"id": cid, "object": "chat.completion", "created": int(time.time()),
                                    "model": body.get("model"), "usage": usage,
                                    "choices": [{"index": 0, "message": message, "finish_reason": finish}]})
        base = {"id": cid, "object": "chat.completion.chunk", "created": int(time.time()),
                "model": body.get("model")}
        self._start_sse()
        for chunk in (dict(base, choices=[{"index": 0, "delta": delta, "finish_reason": None}]),
                      dict(base, choices=[{"index": 0, "delta": {}, "finish_reason": finish}], usage=usage)):
            self.wfile.write(f"data: {json.dumps(chunk)}\n\n".encode())
        self.wfile.write(b"data: [DONE]\n\n")
        self.wfile.flush()

    def post(self, body):
        if self._chat():
            return self._chat_answer(body)
        if not self.path.rstrip("/").endswith("/responses"):
            return self._send_json({})
        kind, arg, tool = self._decide(body)
        rid = f"resp_{int(time.time() * 1000)}"
        if kind == "tool":
            item = self._call(arg, tool)
        else:
            item = {"type": "message", "role": "assistant", "id": f"msg_{rid}",
                    "status": "completed",
                    "content": [{"type": "output_text", "text": arg, "annotations": []}]}
        usage = {"input_tokens": 12, "input_tokens_details": {"cached_tokens": 0},
                 "output_tokens": 8, "output_tokens_details": {"reasoning_tokens": 0},
                 "total_tokens": 20}
        if not body.get("stream", True):
            return self._send_json({"id": rid, "object": "response", "status": "completed",
                                    "output": [item], "usage": usage})
        self._start_sse()
        self._event("response.created", {"type": "response.created",
                    "response": {"id": rid, "status": "in_progress"}})
        self._event("response.output_item.added",
                    {"type": "response.output_item.added", "output_index": 0, "item": item})
        if kind == "text":
            self._event("response.output_text.delta", {"type": "response.output_text.delta",
                        "item_id": item["id"], "output_index": 0, "content_index": 0,
                        "delta": arg})
        self._event("response.output_item.done",
                    {"type": "response.output_item.done", "output_index": 0, "item": item})
        self._event("response.completed", {"type": "response.completed",
                    "response": {"id": rid, "status": "completed", "output": [item],
                                 "usage": usage}})


class Gemini(_Handler):
    """The Gemini API as Gemini CLI uses it: streamGenerateContent for turns, generateContent
    (JSON answers) for its model router."""

    def _decide(self, body):
        contents = body.get("contents") or []
        last = contents[-1] if contents else {}
        parts = [p for p in last.get("parts") or [] if isinstance(p, dict)]
        if any("functionResponse" in p for p in parts):
            return ("text", "Done: the command finished.")
        tools = [fd.get("name") for t in body.get("tools") or [] if isinstance(t, dict)
                 for fd in t.get("functionDeclarations") or []]
        if last.get("role") == "user" and "run_shell_command" in tools:
            m = None
            for p in parts:
                m = DIRECTIVE.search(p.get("text") or "") or m
            if m:
                return ("tool", m.group(2))
        if (body.get("generationConfig") or {}).get("responseMimeType") == "application/json":
            return ("json", "")
        return ("text", "OK.")

    def summary(self, body):
        kind, arg = self._decide(body)
        return {"path": self.path.split("?")[0].rsplit("/", 1)[-1], "answer": kind, "arg": arg}

    def post(self, body):
        if ":countTokens" in self.path:
            return self._send_json({"totalTokens": 10})
        kind, arg = self._decide(body)
        if kind == "tool":
            part = {"functionCall": {"name": "run_shell_command",
                                     "args": {"command": arg, "description": "Run the requested command"}}}
        elif kind == "json":
            # Enough for every routing strategy: the classifier's and the next-speaker check's.
            part = {"text": json.dumps({"reasoning": "stand-in", "model_choice": "flash",
                                        "next_speaker": "user", "complexity_reasoning": "stand-in",
                                        "complexity_score": 1})}
        else:
            part = {"text": arg}
        answer = {"candidates": [{"content": {"role": "model", "parts": [part]},
                                  "finishReason": "STOP", "index": 0}],
                  "usageMetadata": {"promptTokenCount": 12, "candidatesTokenCount": 8,
                                    "totalTokenCount": 20}}
        if ":streamGenerateContent" not in self.path:
            return self._send_json(answer)
        self._start_sse()
        self.wfile.write(f"data: {json.dumps(answer)}\n\n".encode())
        self.wfile.flush()


class Ntfy(_Handler):
    """Enough of an ntfy server for phone alerts: publishes are logged with their body."""

    def summary(self, body):
        return {"topic": body.get("topic"), "title": body.get("title"),
                "message": body.get("message")}

    def get(self):
        # Polls of the control topic: nothing is ever waiting.
        self.send_response(200)
        self.send_header("Content-Type", "application/x-ndjson")
        self.send_header("Content-Length", "0")
        self.end_headers()

    def post(self, body):
        self._send_json({"id": f"m{int(time.time() * 1000) % 10**10:010d}",
                         "time": int(time.time()), "event": "message",
                         "topic": body.get("topic", ""), "message": body.get("message", "")})


HANDLERS = {"anthropic": Anthropic, "openai": OpenAI, "gemini": Gemini, "ntfy": Ntfy}


def start_server(kind, log_path):
    """Serves `kind` on a free loopback port from a daemon thread; answers the port."""
    handler = type("H", (HANDLERS[kind],), {"log_path": log_path})
    srv = Server(("127.0.0.1", 0), handler)
    threading.Thread(target=srv.serve_forever, daemon=True).start()
    return srv.server_address[1]


def start_proxy(log_path):
    ready = threading.Event()
    port = []

    def note(p):
        port.append(p)
        ready.set()
    threading.Thread(target=serve_proxy, args=(0, log_path, note), daemon=True).start()
    ready.wait(5)
    return port[0]


def _socket_owner(peer_port):
    """Which local process holds the loopback socket whose port is `peer_port` (best effort)."""
    inode = None
    for table in ("/proc/net/tcp", "/proc/net/tcp6"):
        try:
            with open(table) as f:
                for line in f.readlines()[1:]:
                    fields = line.split()
                    if int(fields[1].rsplit(":", 1)[1], 16) == peer_port:
                        inode = fields[9]
        except (OSError, ValueError, IndexError):
            pass
    if not inode:
        return None
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            for fd in os.listdir(f"/proc/{pid}/fd"):
                if os.readlink(f"/proc/{pid}/fd/{fd}") == f"socket:[{inode}]":
                    with open(f"/proc/{pid}/cmdline", "rb") as c:
                        argv = c.read().split(b"\0")
                    return {"pid": int(pid), "argv": [a.decode(errors="replace") for a in argv[:-1]][:8]}
        except OSError:
            continue
    return None


def serve_proxy(port, log_path, ready):
    """Accepts, logs the first request line (CONNECT host:port or an absolute URL), refuses."""
    import socket
    srv = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    srv.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    srv.bind(("127.0.0.1", port))
    srv.listen(64)
    ready(srv.getsockname()[1])

    def handle(conn, peer):
        owner = _socket_owner(peer[1])
        try:
            conn.settimeout(5)
            data = b""
            while b"\n" not in data and len(data) < 8192:
                chunk = conn.recv(4096)
                if not chunk:
                    break
                data += chunk
            line = data.split(b"\n", 1)[0].decode("latin-1").strip()
            _log(log_path, {"request": line or repr(data[:64]), "from": owner})
            conn.sendall(b"HTTP/1.1 403 Forbidden\r\nContent-Length: 0\r\nConnection: close\r\n\r\n")
        except OSError as e:
            _log(log_path, {"request": None, "error": str(e)})
        finally:
            conn.close()

    while True:
        conn, peer = srv.accept()
        threading.Thread(target=handle, args=(conn, peer), daemon=True).start()


def main(argv=None):
    p = argparse.ArgumentParser(description=__doc__)
    p.add_argument("kind", choices=[*HANDLERS, "proxy"])
    p.add_argument("--port", type=int, default=0)
    p.add_argument("--port-file", required=True)
    p.add_argument("--log", required=True)
    a = p.parse_args(argv)

    def ready(port):
        tmp = a.port_file + ".tmp"
        with open(tmp, "w") as f:
            f.write(str(port))
        os.rename(tmp, a.port_file)

    if a.kind == "proxy":
        serve_proxy(a.port, a.log, ready)
        return
    handler = type("H", (HANDLERS[a.kind],), {"log_path": a.log})
    srv = Server(("127.0.0.1", a.port), handler)
    ready(srv.server_address[1])
    srv.serve_forever()


if __name__ == "__main__":
    sys.exit(main())
