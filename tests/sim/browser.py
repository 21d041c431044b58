"""A browser without a window, driven through its debugging protocol over a pair of pipes."""
import base64
import json
import os
import select
import shutil
import subprocess
import tempfile
import time

PATIENCE = 60  # seconds for any one answer
FLAGS = ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync",
         "--remote-debugging-pipe")
# Key: (code, virtual key code, text)
KEYS = {"Tab": ("Tab", 9, ""), "Enter": ("Enter", 13, "\r"), " ": ("Space", 32, " "),
        "ArrowLeft": ("ArrowLeft", 37, ""), "ArrowUp": ("ArrowUp", 38, ""),
        "ArrowRight": ("ArrowRight", 39, ""), "ArrowDown": ("ArrowDown", 40, "")}


def program():
    return shutil.which("chromium") or shutil.which("chromium-browser")


class Refused(Exception):
    """The browser says no, or nothing."""


class Browser:
    """One page. `complaints` is what stood in its console, and what it wanted from a network."""

    def __init__(self):
        self.complaints, self.last, self.session, self.received = [], 0, None, b""
        self.profile = tempfile.TemporaryDirectory(prefix="page-test.", ignore_cleanup_errors=True)
        commands, self.commands = os.pipe()
        self.answers, answers = os.pipe()
        self.process = subprocess.Popen(
            ["bash", "-c", f'exec "$@" 3<&{commands} 4>&{answers}', "browser", program(), *FLAGS,
             f"--user-data-dir={self.profile.name}"], pass_fds=(commands, answers),
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(commands)
        os.close(answers)
        target = self.ask("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.ask("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network", "Accessibility"):
            self.ask(f"{domain}.enable")

    def close(self):
        self.process.terminate()
        self.process.wait()
        os.close(self.commands)
        os.close(self.answers)
        self.profile.cleanup()

    # --- the protocol -------------------------------------------------------------------------

    def message(self):
        end = time.monotonic() + PATIENCE
        while b"\0" not in self.received:
            ready, _, _ = select.select([self.answers], [], [], max(0, end - time.monotonic()))
            piece = os.read(self.answers, 1 << 16) if ready else b""
            if not piece:
                raise Refused("the browser does not answer")
            self.received += piece
        one, self.received = self.received.split(b"\0", 1)
        return json.loads(one)

    def ask(self, method, **parameters):
        self.last += 1
        request = {"id": self.last, "method": method, "params": parameters}
        if self.session is not None:
            request["sessionId"] = self.session
        data = json.dumps(request).encode() + b"\0"
        while data:
            data = data[os.write(self.commands, data):]
        while True:
            answer = self.message()
            self.notice(answer)
            if answer.get("id") == self.last:
                break
        if "error" in answer:
            raise Refused(f"{method}: {answer['error']['message']}")
        return answer["result"]

    def notice(self, message):
        method, parameters = message.get("method"), message.get("params", {})
        if method == "Runtime.exceptionThrown":
            details = parameters["exceptionDetails"]
            self.complaints.append(details.get("exception", {}).get("description", details["text"]))
        elif method == "Runtime.consoleAPICalled":
            self.complaints.append(f"console: {parameters['args']}")
        elif method == "Log.entryAdded":
            self.complaints.append(f"{parameters['entry']['source']}: {parameters['entry']['text']}")
        elif method == "Network.requestWillBeSent":
            url = parameters["request"]["url"]
            if not url.startswith(("file:", "data:", "about:")):
                self.complaints.append(f"request: {url}")
        elif method == "Page.loadEventFired":
            self.loaded = True

    # --- what a person does -------------------------------------------------------------------

    def open(self, path, width=1400, scheme="light"):
        self.complaints, self.loaded = [], False
        self.look(width, scheme)
        self.ask("Page.navigate", url="file://" + os.path.abspath(path))
        while not self.loaded:
            self.notice(self.message())

    def look(self, width=1400, scheme="light", media=""):
        self.ask("Emulation.setDeviceMetricsOverride", width=width, height=1000, deviceScaleFactor=1,
                 mobile=False)
        self.ask("Emulation.setEmulatedMedia", media=media,
                 features=[{"name": "prefers-color-scheme", "value": scheme}])

    def run(self, script):
        """The value of an expression in the page."""
        answer = self.ask("Runtime.evaluate", expression=script, returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in answer:
            raise Refused(answer["exceptionDetails"].get("exception", {}).get("description"))
        return answer["result"].get("value")

    def press(self, key):
        code, number, text = KEYS[key]
        fields = {"key": key, "code": code, "windowsVirtualKeyCode": number}
        self.ask("Input.dispatchKeyEvent", type="keyDown" if text else "rawKeyDown", text=text, **fields)
        self.ask("Input.dispatchKeyEvent", type="keyUp", **fields)

    def write(self, text):
        self.ask("Input.insertText", text=text)

    def printed(self):
        return base64.b64decode(self.ask("Page.printToPDF", printBackground=True)["data"])

    def picture(self, path):
        with open(path, "wb") as file:
            file.write(base64.b64decode(self.ask("Page.captureScreenshot", format="png")["data"]))
