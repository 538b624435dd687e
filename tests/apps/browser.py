"""Chromium without a window, driven over its DevTools pipe: no more than Python and the browser."""
import base64
import json
import os
import shutil
import subprocess
import tempfile
import time

CHROMIUM = shutil.which("chromium") or shutil.which("chromium-browser")


class Browser:
    def __init__(self):
        self.profile = tempfile.TemporaryDirectory()
        to_browser, ours = os.pipe()
        theirs, from_browser = os.pipe()

        def place():  # the browser reads from descriptor 3 and writes to 4
            high = [os.dup(to_browser), os.dup(from_browser)]
            high = [os.dup2(fd, 100 + i) for i, fd in enumerate(high)]
            os.dup2(high[0], 3)
            os.dup2(high[1], 4)

        self.process = subprocess.Popen(
            [CHROMIUM, "--headless=new", "--no-sandbox", "--disable-gpu", "--no-first-run",
             "--disable-dev-shm-usage", "--remote-debugging-pipe",
             f"--user-data-dir={self.profile.name}"],
            preexec_fn=place, close_fds=False, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL)
        os.close(to_browser)
        os.close(from_browser)
        self.out, self.inp = os.fdopen(ours, "wb", 0), os.fdopen(theirs, "rb", 0)
        self.count, self.rest, self.session, self.problems = 0, b"", None, []
        page = self.tell("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.tell("Target.attachToTarget", targetId=page, flatten=True)["sessionId"]
        for room in ("Page", "Runtime", "Log"):
            self.tell(room + ".enable")

    def close(self):
        self.process.kill()
        self.process.wait()
        self.out.close()
        self.inp.close()
        time.sleep(0.1)  # its children leave the profile
        shutil.rmtree(self.profile.name, ignore_errors=True)
        self.profile._finalizer.detach()

    def message(self):
        while b"\0" not in self.rest:
            part = self.inp.read(1 << 16)
            if not part:
                raise EOFError("the browser has ended")
            self.rest += part
        text, self.rest = self.rest.split(b"\0", 1)
        return json.loads(text)

    def tell(self, method, **words):
        """Calls a method and gives its result; what the page complains of is kept."""
        self.count += 1
        call = {"id": self.count, "method": method, "params": words}
        if self.session:
            call["sessionId"] = self.session
        self.out.write(json.dumps(call).encode() + b"\0")
        while True:
            message = self.message()
            if message.get("id") == self.count:
                if "error" in message:
                    raise RuntimeError(f"{method}: {message['error']}")
                return message["result"]
            self.note(message)

    def note(self, message):
        said = message.get("params", {})
        if message.get("method") == "Runtime.exceptionThrown":
            self.problems.append(said["exceptionDetails"].get("exception", said))
        if message.get("method") == "Runtime.consoleAPICalled" and said["type"] in ("error", "warning"):
            self.problems.append(said["args"])
        if message.get("method") == "Log.entryAdded" and said["entry"]["level"] == "error":
            self.problems.append(said["entry"])

    def open(self, path, width=1200, height=900, dark=False):
        self.tell("Emulation.setDeviceMetricsOverride", width=width, height=height,
                  deviceScaleFactor=1, mobile=width < 600)
        self.tell("Emulation.setEmulatedMedia", features=[
            {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])
        self.tell("Page.navigate", url=path.as_uri())

    def value(self, expression):
        result = self.tell("Runtime.evaluate", expression=expression, returnByValue=True)
        if "exceptionDetails" in result:
            raise RuntimeError(result["exceptionDetails"])
        return result["result"].get("value")

    def until(self, expression, seconds=60):
        end = time.monotonic() + seconds
        while not self.value(expression):
            if time.monotonic() > end:
                raise TimeoutError(expression)
            time.sleep(0.05)

    def box(self, selector):
        return self.value(f"(({{x, y, width, height}}) => ({{x, y, width, height}}))(document"
                          f".querySelector({selector!r}).getBoundingClientRect())")

    def drag(self, selector, start=0.5, end=None):
        """A click, or a drag from one part of the element's width to another."""
        self.value(f"document.querySelector({selector!r}).scrollIntoView({{block: 'center'}})")
        box = self.box(selector)
        places = [box["x"] + part * box["width"] for part in (start, end if end else start)]
        y = box["y"] + box["height"] / 2
        for kind, x in (("mousePressed", places[0]), ("mouseMoved", places[1]),
                        ("mouseReleased", places[1])):
            self.tell("Input.dispatchMouseEvent", type=kind, x=x, y=y, button="left", clickCount=1)

    def press(self, key):
        text = {"text": key} if len(key) == 1 else {}
        self.tell("Input.dispatchKeyEvent", type="keyDown", key=key, **text)
        self.tell("Input.dispatchKeyEvent", type="keyUp", key=key)

    def picture(self, path, whole=True):
        shot = self.tell("Page.captureScreenshot", captureBeyondViewport=whole)
        path.write_bytes(base64.b64decode(shot["data"]))
