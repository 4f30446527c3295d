#!/usr/bin/python3
"""Stand-ins for the online services on 127.0.0.1, for the tests of sign-in, upload and music.

Usage: online_test_server.py [FOLDER]

Prints the port it listens on as its first line and serves until it is stopped. It plays:
  Google OAuth   GET /o/oauth2/auth (consents at once: 302 to redirect_uri with code and
                 state), POST /token (authorization_code with PKCE S256 checked, and
                 refresh_token), POST /revoke, GET /v1/userinfo
  YouTube        POST /upload/youtube/v3/videos?uploadType=resumable (opens a session),
                 PUT on the session (chunks with Content-Range, and "bytes */N" status asks)
  Openverse      POST /v1/auth_tokens/register/, POST /v1/auth_tokens/token/,
                 GET /v1/audio/?q=..., GET /v1/audio/ID/, GET /v1/audio/ID/waveform/
  files          GET /files/NAME from FOLDER (audio downloads)
Control:
  POST /control/faults     a JSON list of faults, each used once, in order, by the first
                           request it matches (see take_fault)
  POST /control/settings   merges settings: expiresIn, rotateRefreshToken, openverseExpiresIn
  POST /control/catalogue  the audio results (a list); a "url" or "waveform" starting with
                           "/" is made absolute on this server
  GET  /control/state      everything the tests check: requests, tokens, sessions, uploads
"""

import base64
import hashlib
import http.server
import json
import os
import secrets
import socket
import struct
import sys
import threading
import time
import urllib.parse

FOLDER = sys.argv[1] if len(sys.argv) > 1 else "."
LOCK = threading.RLock()
STATE = {
    "requests": [],  # method, path, contentRange, authorization given, time
    "authorizations": [],  # the consent page's query
    "codes": {},  # code -> {challenge, redirect_uri, client_id, used}
    "accessTokens": {},  # token -> expiry (seconds since the epoch)
    "refreshTokens": {},  # token -> revoked
    "revoked": [],
    "tokenRequests": [],  # grant types, in order
    "sessions": {},  # id -> {size, data (not shown), metadata, complete, videoID, mime}
    "openverseClients": {},
    "openverseTokens": [],
    "faults": [],
    "settings": {"expiresIn": 3600, "rotateRefreshToken": False, "openverseExpiresIn": 36000},
    "catalogue": [],
}


def token_text(prefix):
    return prefix + secrets.token_urlsafe(24)


def take_fault(kind, **match):
    """The first waiting fault of this kind whose fields agree with `match`."""
    with LOCK:
        for index, fault in enumerate(STATE["faults"]):
            if fault.get("type") != kind:
                continue
            if all(fault.get(key, value) == value for key, value in match.items()):
                return STATE["faults"].pop(index)
    return None


def google_error(code, message, reason):
    return {"error": {"code": code, "message": message, "status": "ERROR",
                      "errors": [{"message": message, "domain": "youtube", "reason": reason}]}}


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, format, *args):
        pass

    # ---- plumbing -------------------------------------------------------------------------

    def read_body(self):
        length = int(self.headers.get("Content-Length") or 0)
        return self.rfile.read(length) if length else b""

    def reply(self, status, data=b"", content_type="application/json", headers=()):
        if isinstance(data, (dict, list)):
            data = json.dumps(data).encode()
        elif isinstance(data, str):
            data = data.encode()
        self.send_response(status)
        if data or status not in (204, 304):
            self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(data)))
        for name, value in headers:
            self.send_header(name, value)
        self.end_headers()
        if self.command != "HEAD":
            self.wfile.write(data)

    def cut(self):
        """Drops the connection without an answer: a reset, as a network that fails gives."""
        self.close_connection = True
        try:
            self.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            self.connection.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass

    def bearer(self):
        value = self.headers.get("Authorization") or ""
        return value[7:] if value.startswith("Bearer ") else None

    def valid_access(self):
        token = self.bearer()
        with LOCK:
            expiry = STATE["accessTokens"].get(token)
        return expiry is not None and expiry > time.time()

    def origin(self):
        return "http://127.0.0.1:%d" % self.server.server_address[1]

    def handle_any(self):
        url = urllib.parse.urlparse(self.path)
        query = dict(urllib.parse.parse_qsl(url.query, keep_blank_values=True))
        with LOCK:
            STATE["requests"].append({
                "method": self.command,
                "path": self.path,
                "contentRange": self.headers.get("Content-Range"),
                "authorized": self.headers.get("Authorization") is not None,
                "time": time.time(),
            })
        try:
            self.route(url.path, query)
        except (BrokenPipeError, ConnectionResetError):
            self.close_connection = True

    def route(self, path, query):
        if path == "/control/faults":
            faults = json.loads(self.read_body())
            with LOCK:
                STATE["faults"].extend(faults)
            return self.reply(200, {"faults": len(STATE["faults"])})
        if path == "/control/settings":
            settings = json.loads(self.read_body())
            with LOCK:
                STATE["settings"].update(settings)
            return self.reply(200, STATE["settings"])
        if path == "/control/catalogue":
            catalogue = json.loads(self.read_body())
            for entry in catalogue:
                for key in ("url", "waveform"):
                    if isinstance(entry.get(key), str) and entry[key].startswith("/"):
                        entry[key] = self.origin() + entry[key]
            with LOCK:
                STATE["catalogue"] = catalogue
            return self.reply(200, {"tracks": len(catalogue)})
        if path == "/control/state":
            return self.reply(200, self.state())
        if path == "/o/oauth2/auth":
            return self.authorize(query)
        if path == "/token":
            return self.token()
        if path == "/revoke":
            return self.revoke()
        if path == "/v1/userinfo":
            return self.userinfo()
        if path == "/upload/youtube/v3/videos":
            if self.command == "POST":
                return self.open_session(query)
            return self.upload_chunk(query)
        if path.startswith("/v1/"):
            return self.openverse(path[4:], query)
        if path.startswith("/files/"):
            return self.serve_file(path[7:])
        self.read_body()
        self.reply(404, {"error": "unknown path"})

    def state(self):
        with LOCK:
            sessions = {}
            for key, session in STATE["sessions"].items():
                data = bytes(session["data"])
                sessions[key] = {k: v for k, v in session.items() if k != "data"}
                sessions[key]["received"] = len(data)
                sessions[key]["sha256"] = hashlib.sha256(data).hexdigest()
            return {
                "requests": STATE["requests"],
                "authorizations": STATE["authorizations"],
                "codes": list(STATE["codes"].keys()),
                "accessTokens": list(STATE["accessTokens"].keys()),
                "refreshTokens": list(STATE["refreshTokens"].keys()),
                "revoked": STATE["revoked"],
                "tokenRequests": STATE["tokenRequests"],
                "sessions": sessions,
                "openverseClients": STATE["openverseClients"],
                "openverseTokens": STATE["openverseTokens"],
                "faultsLeft": STATE["faults"],
            }

    # ---- Google OAuth ---------------------------------------------------------------------

    def authorize(self, query):
        with LOCK:
            STATE["authorizations"].append(query)
        redirect = query.get("redirect_uri", "")
        state = query.get("state", "")
        if take_fault("denyConsent"):
            items = {"error": "access_denied", "state": state}
        else:
            code = token_text("code-")
            with LOCK:
                STATE["codes"][code] = {"challenge": query.get("code_challenge"),
                                        "method": query.get("code_challenge_method"),
                                        "redirect_uri": redirect,
                                        "client_id": query.get("client_id"), "used": False}
            if take_fault("forgeState"):
                state = "forged-" + secrets.token_urlsafe(8)
            items = {"code": code, "state": state}
        location = redirect + "?" + urllib.parse.urlencode(items)
        self.reply(302, b"", "text/plain", [("Location", location)])

    def issue_access(self):
        token = token_text("ya29.")
        with LOCK:
            expires = int(STATE["settings"]["expiresIn"])
            STATE["accessTokens"][token] = time.time() + expires
        return token, expires

    def token(self):
        form = dict(urllib.parse.parse_qsl(self.read_body().decode()))
        grant = form.get("grant_type")
        with LOCK:
            STATE["tokenRequests"].append(grant)
        fault = take_fault("tokenStatus", grant=grant)
        if fault:
            return self.reply(fault["code"], fault.get("body", {"error": "server_error"}))
        invalid = {"error": "invalid_grant", "error_description": "Bad Request"}
        if grant == "authorization_code":
            with LOCK:
                entry = STATE["codes"].get(form.get("code"))
                if entry is None or entry["used"]:
                    entry = None
                else:
                    entry["used"] = True
            if entry is None or entry["redirect_uri"] != form.get("redirect_uri") \
                    or entry["client_id"] != form.get("client_id"):
                return self.reply(400, invalid)
            verifier = form.get("code_verifier", "").encode()
            challenge = base64.urlsafe_b64encode(hashlib.sha256(verifier).digest()).rstrip(b"=")
            if entry["method"] != "S256" or challenge.decode() != entry["challenge"]:
                return self.reply(400, {"error": "invalid_grant",
                                        "error_description": "Invalid code verifier."})
            access, expires = self.issue_access()
            answer = {"access_token": access, "expires_in": expires, "token_type": "Bearer",
                      "scope": "https://www.googleapis.com/auth/youtube.upload",
                      "id_token": token_text("idt-")}
            if not take_fault("noRefreshToken"):
                refresh = token_text("1//")
                with LOCK:
                    STATE["refreshTokens"][refresh] = False
                answer["refresh_token"] = refresh
            return self.reply(200, answer)
        if grant == "refresh_token":
            refresh = form.get("refresh_token")
            with LOCK:
                known = STATE["refreshTokens"].get(refresh)
            if known is None or known:
                return self.reply(400, invalid)
            access, expires = self.issue_access()
            answer = {"access_token": access, "expires_in": expires, "token_type": "Bearer"}
            if STATE["settings"].get("rotateRefreshToken"):
                fresh = token_text("1//")
                with LOCK:
                    STATE["refreshTokens"][fresh] = False
                answer["refresh_token"] = fresh
            return self.reply(200, answer)
        self.reply(400, {"error": "unsupported_grant_type"})

    def revoke(self):
        form = dict(urllib.parse.parse_qsl(self.read_body().decode()))
        fault = take_fault("revokeStatus")
        if fault:
            return self.reply(fault["code"], {"error": "invalid_token"})
        token = form.get("token")
        with LOCK:
            if token in STATE["refreshTokens"]:
                STATE["refreshTokens"][token] = True
            STATE["revoked"].append(token)
        self.reply(200, {})

    def userinfo(self):
        if not self.valid_access():
            return self.reply(401, google_error(401, "Invalid Credentials", "authError"))
        self.reply(200, {"sub": "1234567890", "name": "Ada Example",
                         "email": "ada@example.com", "picture": self.origin() + "/files/ada.png"})

    # ---- YouTube resumable upload ---------------------------------------------------------

    def open_session(self, query):
        body = self.read_body()
        if not self.valid_access():
            return self.reply(401, google_error(401, "Invalid Credentials", "authError"))
        fault = take_fault("sessionStatus")
        if fault:
            return self.reply(fault["code"], google_error(fault["code"], "no", fault.get("reason", "backendError")))
        if take_fault("noLocation"):
            return self.reply(200, {})
        key = secrets.token_hex(8)
        with LOCK:
            STATE["sessions"][key] = {
                "size": int(self.headers.get("X-Upload-Content-Length") or 0),
                "mime": self.headers.get("X-Upload-Content-Type"),
                "contentType": self.headers.get("Content-Type"),
                "query": query,
                "metadata": json.loads(body or b"{}"),
                "data": bytearray(), "complete": False, "videoID": None,
            }
        location = "%s/upload/youtube/v3/videos?uploadType=resumable&upload_id=%s" % (
            self.origin(), key)
        self.reply(200, {}, headers=[("Location", location)])

    def session_answer(self, session):
        if session["complete"]:
            return self.reply(200, {"id": session["videoID"], "kind": "youtube#video"})
        received = len(session["data"])
        headers = [("Range", "bytes=0-%d" % (received - 1))] if received else []
        self.reply(308, b"", "text/plain", headers)

    def upload_chunk(self, query):
        key = query.get("upload_id")
        with LOCK:
            session = STATE["sessions"].get(key)
        content_range = self.headers.get("Content-Range") or ""
        length = int(self.headers.get("Content-Length") or 0)
        if session is None:
            self.read_body()
            return self.reply(404, google_error(404, "No such upload.", "notFound"))
        if not self.valid_access():
            self.read_body()
            return self.reply(401, google_error(401, "Invalid Credentials", "authError"))
        if content_range.startswith("bytes */"):
            self.read_body()
            if take_fault("recoveryStatus"):
                return self.reply(503, google_error(503, "Backend Error", "backendError"))
            if take_fault("recoveryNoRange"):
                with LOCK:
                    del session["data"][:]
                return self.reply(308, b"", "text/plain")
            return self.session_answer(session)
        first, last = (int(x) for x in content_range[6:].split("/")[0].split("-"))
        stall = take_fault("stall", start=first)
        if stall:
            time.sleep(stall["seconds"])
            self.cut()
            return
        status = take_fault("status", start=first)
        if status:
            self.read_body()
            headers = [("Retry-After", str(status["retryAfter"]))] if "retryAfter" in status else []
            return self.reply(status["code"],
                              google_error(status["code"], status.get("message", "Backend Error"),
                                           status.get("reason", "backendError")),
                              headers=headers)
        cut = take_fault("cut", start=first)
        if cut:
            part = self.rfile.read(min(int(cut["at"]), length))
            with LOCK:
                if first <= len(session["data"]):
                    del session["data"][first:]
                    session["data"].extend(part)
            self.cut()
            return
        data = self.rfile.read(length)
        with LOCK:
            if first > len(session["data"]):
                pass  # a gap: keep what we had, the client must ask again
            else:
                del session["data"][first:]
                session["data"].extend(data)
            if len(session["data"]) >= session["size"] or take_fault("finishEarly"):
                session["complete"] = True
                session["videoID"] = session["videoID"] or "vid" + secrets.token_hex(4)
        self.session_answer(session)

    # ---- Openverse ------------------------------------------------------------------------

    def openverse_authorized(self):
        token = self.bearer()
        with LOCK:
            return token in STATE["openverseTokens"]

    def openverse(self, path, query):
        body = self.read_body()
        if path == "auth_tokens/register/":
            request = json.loads(body or b"{}")
            if not request.get("email"):
                return self.reply(400, {"email": ["This field is required."]})
            client = {"client_id": secrets.token_hex(8), "client_secret": secrets.token_hex(16),
                      "name": request.get("name")}
            with LOCK:
                STATE["openverseClients"][client["client_id"]] = dict(client, email=request["email"],
                                                                      description=request.get("description"),
                                                                      contentType=self.headers.get("Content-Type"))
            return self.reply(201, client)
        if path == "auth_tokens/token/":
            form = dict(urllib.parse.parse_qsl(body.decode()))
            with LOCK:
                client = STATE["openverseClients"].get(form.get("client_id"))
            if form.get("grant_type") != "client_credentials" or client is None \
                    or client["client_secret"] != form.get("client_secret"):
                return self.reply(401, {"detail": "Invalid client credentials."})
            if take_fault("emptyToken"):
                return self.reply(200, {"access_token": "", "expires_in": 100})
            token = secrets.token_hex(12)
            with LOCK:
                STATE["openverseTokens"].append(token)
            return self.reply(200, {"access_token": token, "token_type": "Bearer",
                                    "expires_in": STATE["settings"]["openverseExpiresIn"],
                                    "scope": "read write"})
        if take_fault("openverseStatus"):
            return self.reply(403, "<html>\nForbidden\r\n</html>", "text/html")
        if not self.openverse_authorized():
            return self.reply(401, {"detail": "Authentication credentials were not provided."})
        parts = [p for p in path.split("/") if p]
        with LOCK:
            catalogue = list(STATE["catalogue"])
        if parts == ["audio"]:
            words = set(query.get("q", "").lower().split())
            found = [t for t in catalogue if words & set(t.get("tags", []))]
            return self.reply(200, {"result_count": len(found), "results": found[:int(query.get("page_size", 20))]})
        if len(parts) >= 2 and parts[0] == "audio":
            track = next((t for t in catalogue if t["id"] == parts[1]), None)
            if track is None:
                return self.reply(404, {"detail": "Not found."})
            if len(parts) == 2:
                return self.reply(200, track)
            if parts[2] == "waveform":
                if track.get("waveformFails"):
                    return self.reply(500, {"detail": "waveform failed"})
                return self.reply(200, {"len": len(track.get("points", [])),
                                        "points": track.get("points", [])})
        self.reply(404, {"detail": "Not found."})

    def serve_file(self, name):
        self.read_body()
        path = os.path.join(FOLDER, os.path.basename(name))
        if not os.path.isfile(path):
            return self.reply(404, b"no such file", "text/plain")
        if self.headers.get("Authorization"):
            return self.reply(400, b"downloads take no token", "text/plain")
        with open(path, "rb") as file:
            self.reply(200, file.read(), "audio/mpeg")

    do_GET = do_POST = do_PUT = do_PATCH = do_DELETE = do_HEAD = handle_any


server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
server.daemon_threads = True
print(server.server_address[1], flush=True)
server.serve_forever()
