"""Headless Chromium, spoken to through a pipe in the browser's own debugging protocol: JSON texts, each ended by a zero
byte, on the file descriptors 3 (to the browser) and 4 (from it)."""
import base64
import json
import os
import select
import shutil
import subprocess
import tempfile
import time


class Browser:
    """A browser with one page and a profile of its own. What the page says on its console is kept in `said`."""

    def __init__(self, width=1360, height=1000):
        program = shutil.which("chromium")
        assert program, "chromium is missing; ./dev test installs it"
        self.profile = tempfile.mkdtemp(prefix="tavlox-browser-")
        commands, self.to_browser = os.pipe()
        self.from_browser, answers = os.pipe()
        # Without a sandbox: it is refused to root and in containers, and all pages are our own.
        words = [program, "--headless=new", "--no-sandbox", "--remote-debugging-pipe", f"--user-data-dir={self.profile}",
                 "--no-first-run", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars", "--disable-background-networking",
                 f"--window-size={width},{height}", "about:blank"]

        def wire():
            # Both are moved out of the way first: either may be where the other has to go.
            source, sink = os.dup(commands), os.dup(answers)
            os.dup2(source, 3)
            os.dup2(sink, 4)

        self.process = subprocess.Popen(words, preexec_fn=wire, close_fds=False, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(commands)
        os.close(answers)
        self.buffer, self.last, self.session, self.said, self.asked_for = b"", 0, None, [], []
        target = next(t for t in self.call("Target.getTargets")["targetInfos"] if t["type"] == "page")
        self.session = self.call("Target.attachToTarget", targetId=target["targetId"], flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.call(domain + ".enable")

    def close(self):
        self.process.terminate()
        self.process.wait(20)
        os.close(self.to_browser)
        os.close(self.from_browser)
        shutil.rmtree(self.profile, ignore_errors=True)

    def receive(self, deadline):
        """The next message; what the page says and what it asks for on the way are noted."""
        while b"\0" not in self.buffer:
            assert select.select([self.from_browser], [], [], max(0, deadline - time.monotonic()))[0], "the browser is silent"
            piece = os.read(self.from_browser, 1 << 20)
            assert piece, "the browser ended"
            self.buffer += piece
        text, _, self.buffer = self.buffer.partition(b"\0")
        message = json.loads(text)
        if message.get("method") in ("Runtime.consoleAPICalled", "Runtime.exceptionThrown", "Log.entryAdded"):
            self.said.append(message["params"])
        if message.get("method") == "Network.requestWillBeSent":
            self.asked_for.append(message["params"]["request"]["url"])
        return message

    def call(self, method, **parameters):
        self.last += 1
        message = {"id": self.last, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.to_browser, json.dumps(message).encode() + b"\0")
        deadline = time.monotonic() + 30
        while (answer := self.receive(deadline)).get("id") != self.last:
            pass
        assert "error" not in answer, (method, answer)
        return answer["result"]

    def open(self, path):
        self.asked_for.clear()
        self.call("Page.navigate", url=path.absolute().as_uri())
        self.wait_for("document.readyState === 'complete'")
        self.settle()

    def run(self, script):
        """The value of an expression in the page, once it is there if it is a promise."""
        answer = self.call("Runtime.evaluate", expression=script, awaitPromise=True, returnByValue=True)
        assert "exceptionDetails" not in answer, (script, answer["exceptionDetails"])
        return answer["result"].get("value")

    def wait_for(self, condition):
        deadline = time.monotonic() + 15
        while not self.run(condition):
            assert time.monotonic() < deadline, f"never true: {condition}"
            time.sleep(0.05)

    def settle(self):
        """Waits until what was changed is drawn."""
        self.run("new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(() => done(true))))")

    def mouse(self, kind, x, y, **more):
        self.call("Input.dispatchMouseEvent", type=kind, x=x, y=y, button=more.pop("button", "left"), clickCount=1, **more)

    def drag(self, begin, end, **more):
        self.mouse("mousePressed", *begin, **more)
        self.mouse("mouseMoved", *end, **more)
        self.mouse("mouseReleased", *end, **more)
        self.settle()

    def type(self, selector, text):
        self.run(f"document.querySelector({json.dumps(selector)}).focus()")
        self.call("Input.insertText", text=text)

    def key(self, key, **more):
        self.call("Input.dispatchKeyEvent", type="keyDown", key=key, **more)
        self.call("Input.dispatchKeyEvent", type="keyUp", key=key, **more)
        self.settle()

    def picture(self, path, selector="html", scale=1):
        """Saves what the element shows as PNG."""
        box = self.run(f"(({{x, y, width, height}}) => ({{x: x + scrollX, y: y + scrollY, width, height}}))"
                       f"(document.querySelector({json.dumps(selector)}).getBoundingClientRect())")
        data = self.call("Page.captureScreenshot", captureBeyondViewport=True, clip={**box, "scale": scale})["data"]
        path.write_bytes(base64.b64decode(data))
