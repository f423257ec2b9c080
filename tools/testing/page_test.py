"""page_test.py QUILLKIT ARTIFACTS: drives the collector's page in a browser and, where a browser would be too polite,
without one. Leaves screenshots in the directory ARTIFACTS."""

import json
import pathlib
import socket
import sys
import tempfile
import threading
import unittest

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.wait import WebDriverWait

import neighbours
import workbench
from workbench import heartbeat_batch, metrics

HEARTBEAT = "/v1/sdk/heartbeat"
METRICS = "/v1/sdk/metrics/operational"
HOSTILE = '<img src=x onerror="window.broken=1"><script>window.broken=1</script>'
CAPACITY = 2000

QUILLKIT, ARTIFACTS = sys.argv[1], pathlib.Path(sys.argv[2])

# What of the page reaches beyond the window or does not show its text. Cells of the list may shorten theirs.
MISFITS = """
const misfits = [];
if (document.documentElement.scrollWidth > innerWidth) misfits.push('the page itself');
for (const node of document.querySelectorAll('body *')) {
  if (node.closest('.row, .lines, svg, .skip, legend, [hidden]') || node.offsetParent === null) continue;
  const box = node.getBoundingClientRect();
  const isCut = node.matches('button, label, h1, h2, h3, p, dt, dd, .field') && node.scrollWidth > node.clientWidth + 1;
  if (box.left < -1 || box.right > innerWidth + 1 || isCut) misfits.push(node.outerHTML.slice(0, 120));
}
return misfits;
"""


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        ARTIFACTS.mkdir(parents=True, exist_ok=True)
        cls.profile = tempfile.TemporaryDirectory(prefix="quillkit-browser-")
        cls.addClassCleanup(cls.profile.cleanup)
        cls.browser = workbench.open_browser(cls.profile.name)
        cls.addClassCleanup(cls.browser.quit)

    def setUp(self):
        self.collector = workbench.Collector(QUILLKIT)
        self.addCleanup(lambda: self.assertEqual(self.collector.end(), 0))
        self.resize(1280, 800)

    def open(self, url=None):
        self.browser.get(url or self.collector.url)
        self.until(lambda: self.text("#link") == "live")

    def resize(self, width, height):
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 500})

    def script(self, text, *arguments):
        return self.browser.execute_script(text, *arguments)

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def click(self, selector):
        self.find(selector).click()

    def text(self, selector):
        return self.script("return document.querySelector(arguments[0])?.textContent ?? ''", selector)

    def texts(self, selector):
        return self.script(
            "return [...document.querySelectorAll(arguments[0])].map((one) => one.textContent)", selector)

    def marked_bytes(self):
        return self.script(
            "return [...document.querySelectorAll('.codes .marked')].map((one) => Number(one.dataset.byte))")

    def until(self, condition):
        WebDriverWait(self.browser, 60, poll_frequency=0.05).until(lambda _: condition())

    def ids(self):
        """The ids of the rows there are, from above."""
        return self.script("""return [...document.querySelectorAll('#rows .row')]
            .sort((a, b) => a.dataset.index - b.dataset.index).map((row) => Number(row.id.split('-')[1]))""")

    def test_shows_requests_as_they_come(self):
        self.open()
        self.assertEqual(self.collector.post(HEARTBEAT, heartbeat_batch((1, "1.0"), (3, "2.1"))), 200)
        self.until(lambda: self.ids() == [1])
        self.assertEqual(self.text("#rows .content"), "access 1.0, sharing 2.1")
        self.assertEqual(self.text("#rows .status"), "200")
        self.assertEqual(self.collector.post(METRICS, metrics([("sent", 2)], [("upload", 120)])), 200)
        self.collector.post("/v1/config", '{"query":"q"}')
        self.collector.post("/nothing/here", "")
        self.until(lambda: self.ids() == [4, 3, 2, 1])
        self.assertEqual(self.texts("#rows .kind"), ["other", "config", "metrics", "heartbeat"])
        self.assertEqual(self.text("#address"), self.collector.address)

        self.click("input[value=metrics] + span")
        self.until(lambda: self.ids() == [2])
        self.click("input[value=''] + span")
        self.click("#failed")
        self.until(lambda: self.ids() == [4])
        self.click("#failed")
        self.find("#search").send_keys("SHARING")
        self.until(lambda: self.ids() == [1])
        self.assertEqual(self.text("#count"), "1 of 4 requests")

    def test_pauses_and_clears(self):
        self.open()
        self.collector.post(HEARTBEAT, "")
        self.until(lambda: self.ids() == [1])
        self.click("#pause")
        self.collector.post(HEARTBEAT, "")
        self.until(lambda: self.text("#pause") == "Resume (1 new)")
        self.assertEqual(self.ids(), [1])
        self.click("#pause")
        self.until(lambda: self.ids() == [2, 1])
        self.click("#clear")
        self.until(lambda: self.ids() == [])
        self.collector.post(HEARTBEAT, "")
        self.until(lambda: self.ids() == [3])
        # Another page, and this one loaded again, do not see what was cleared.
        self.open()
        self.until(lambda: self.ids() == [3])
        self.assertEqual(len(self.collector.logged()), 3)

    def test_is_used_by_keyboard(self):
        self.open()
        for version in ("1", "2", "3"):
            self.collector.post(HEARTBEAT, heartbeat_batch((1, version)))
        self.until(lambda: self.ids() == [3, 2, 1])
        self.find("body").send_keys("jj")
        self.until(lambda: "No. 2," in self.text("#detail"))
        self.find("body").send_keys("k")
        self.until(lambda: "No. 3," in self.text("#detail"))
        self.find("body").send_keys("/")
        self.browser.switch_to.active_element.send_keys("kit_version: \"1\"", Keys.ENTER)
        self.until(lambda: self.ids() == [1])
        self.assertEqual(self.browser.switch_to.active_element.get_attribute("id"), "rows")
        self.browser.switch_to.active_element.send_keys(Keys.ARROW_DOWN)
        self.until(lambda: "No. 1," in self.text("#detail"))
        self.assertEqual(self.find("#rows").get_attribute("aria-activedescendant"), "request-1")
        self.find("#tab-detail").send_keys(Keys.ARROW_RIGHT)
        self.assertEqual(self.find("#tab-metrics").get_attribute("aria-selected"), "true")

    def test_joins_fields_and_bytes(self):
        self.open()
        body = heartbeat_batch((2, "3.3"))
        self.collector.post(HEARTBEAT, body)
        self.until(lambda: self.ids() == [1])
        self.find("#rows").send_keys("j")
        self.until(lambda: self.texts(".tree .name")[3:5] == ["kitType", "kitVersion"])
        items = self.browser.find_elements(By.CSS_SELECTOR, ".tree [role=treeitem]")
        self.script("arguments[0].focus()", items[4])
        # The field's tag, its length and its text.
        start = body.index(b"\x22\x033.3")
        self.assertEqual(self.marked_bytes(), list(range(start, start + 5)))
        ActionChains(self.browser).move_to_element(self.find(".codes [data-byte='5']")).perform()
        self.until(lambda: self.texts(".tree .marked > div > .name") == ["clientId"])
        self.assertEqual(json.loads(self.text(".raw pre")), self.collector.logged()[0])

    def test_joins_fields_and_bytes_of_json(self):
        self.open()
        body = '{"query": "caf\u00e9 {,", "n": [1, {"deep": -2.5e3}]}'.encode()
        self.collector.post("/v1/config", body)
        self.until(lambda: self.ids() == [1])
        self.find("#rows").send_keys("j")
        self.until(lambda: self.texts(".tree .name") == ["query", "n", "0", "1", "deep"])
        self.assertEqual(self.texts(".tree .value"), ["caf\u00e9 {,", "1", "-2500"])
        self.find(".lines").send_keys(Keys.ARROW_RIGHT, *[Keys.ARROW_DOWN] * 2)
        # The keys lead to byte 32, where the innermost field begins.
        self.until(lambda: self.texts(".tree .marked > div > .name") == ["deep"])
        self.assertEqual(body.index(b'"deep"'), 32)
        self.assertEqual(self.marked_bytes(), list(range(32, 32 + len(b'"deep": -2.5e3'))))

    def test_keeps_hostile_text_as_text(self):
        self.open()
        self.collector.post(METRICS, metrics([(HOSTILE, 1)]), {HOSTILE[1:4]: HOSTILE, "User-Agent": HOSTILE})
        self.collector.post("/" + "".join(f"%{byte:02x}" for byte in HOSTILE.encode()), "")
        self.until(lambda: self.ids() == [2, 1])
        self.find("#rows").send_keys(Keys.END)
        self.until(lambda: "No. 1," in self.text("#detail"))
        self.click("#tab-metrics")
        self.until(lambda: HOSTILE in self.texts(".metric h3"))
        self.assertIn(HOSTILE, self.text("#rows"))
        self.assertIn(HOSTILE, self.text("#detail .tree"))
        self.assertIn(HOSTILE, self.text("#detail dl:last-of-type"))
        self.assertEqual(self.script("return document.querySelectorAll('img, iframe, script:not([src])').length"), 0)
        self.assertIsNone(self.script("return window.broken"))

    def test_lets_a_person_watch_a_retry(self):
        self.open()
        self.click("#tab-answers")
        self.click("button[data-answer='503']")
        self.until(lambda: self.texts("#pending li") == ["503", "then 200"])
        kept = self.collector.send("heartbeat", "--kit", "access", "--kit-version", "1.0")
        self.assertIn("answered 503", kept)
        self.until(lambda: self.texts("#rows .status") == ["503"] and self.texts("#pending li") == ["200"])
        self.assertIn("delivered", self.collector.send("heartbeat", "--kit", "sharing", "--kit-version", "2.1"))
        self.until(lambda: self.texts("#rows .status") == ["200", "503"])
        self.assertEqual(self.texts("#rows .content")[0], "sharing 2.1, access 1.0")
        self.assertEqual(self.texts("#rows .token"), ["valid", "valid"])

    def test_scripts_all_kinds_of_answers(self):
        self.open()
        self.click("#tab-answers")
        self.find("#delay").clear()
        self.find("#delay").send_keys("7000")
        self.click("#limit")
        self.until(lambda: self.texts("#pending li") == ["429:X-Retry-After-Millis=7000", "then 200"])
        self.click("button[data-answer=drop]")
        self.find("#other").send_keys("999", Keys.ENTER)
        self.until(lambda: "from 200 to 599" in self.text("#outcome"))
        self.until(lambda: self.texts("#pending li")[1:] == ["drop", "then 200"])
        self.assertEqual([self.collector.post(HEARTBEAT, "") for _ in range(2)], [429, 0])
        self.click("button[data-answer=stall]")
        self.until(lambda: self.texts("#pending li") == ["stall", "then 200"])
        stalled = threading.Thread(target=self.collector.post, args=(HEARTBEAT, ""))
        stalled.start()
        self.until(lambda: self.text("#release") == "Let 1 stalled go")
        self.click("#release")
        stalled.join(60)
        self.assertFalse(stalled.is_alive())
        self.until(lambda: self.texts("#rows .status") == ["stall", "drop", "429"])

    def test_edits_the_configuration(self):
        self.open()
        self.click("#tab-answers")
        self.until(lambda: self.script("return document.querySelector('#json').value") == "{}")
        self.find("#json").send_keys(Keys.BACKSPACE)
        self.click("#config button[type=submit]")
        self.until(lambda: "no JSON" in self.text("#problem"))
        self.find("#json").clear()
        self.find("#json").send_keys('{"search": {"enabled": true}}')
        self.click("#config button[type=submit]")
        self.until(lambda: self.find("#restore").is_enabled())
        self.assertEqual(self.collector.config(), {"search": {"enabled": True}})
        self.click("#restore")
        self.until(lambda: not self.find("#restore").is_enabled())
        self.assertEqual(self.collector.config(), {})

    def test_gives_another_origin_nothing(self):
        site = neighbours.ForeignSite()
        self.addCleanup(site.end)
        self.collector.post(HEARTBEAT, heartbeat_batch((1, "1.0")))
        self.browser.get(site.url)
        # Even one that knows the token.
        own = f"{self.collector.origin}/{self.collector.token}"
        outcomes = self.browser.execute_async_script("""
            const [own, page, done] = arguments;
            const outcome = (promise) => promise.then(() => 'got it', () => 'failed');
            const events = new Promise((resolve, reject) => {
              const source = new EventSource(own + '/events');
              source.onopen = resolve;
              source.onerror = () => { source.close(); reject(); };
            });
            const post = (name) => fetch(own + name, {method: 'POST', mode: 'no-cors', body: '{"answers":["503"]}'});
            Promise.all([outcome(fetch(own + '/requests/1')), outcome(fetch(page)), outcome(events),
              outcome(import(own + '/text.js')), outcome(post('/answers'))]).then(done);
            """, own, self.collector.url)
        # The last one is sent blindly: what comes back is hidden from the sender, and nothing came of it.
        self.assertEqual(outcomes[:4], ["failed"] * 4)
        self.script("""const form = document.createElement('form');
            form.method = 'post'; form.enctype = 'text/plain'; form.action = arguments[0] + '/requests/clear';
            document.body.append(form); form.submit();""", own)
        self.until(lambda: self.browser.current_url.startswith(own))
        self.assertIn("The page's address is what quillkit printed.", self.text("body"))
        self.open()
        self.until(lambda: self.ids() == [1])
        self.click("#tab-answers")
        self.assertEqual(self.texts("#pending li"), ["200"])

    def test_knows_its_callers(self):
        origin, token = self.collector.origin, self.collector.token
        port = origin.rpartition(":")[2]
        mine = {"Origin": origin}
        cases = [
            (200, "GET", f"/?token={token}", {}),
            (200, "GET", f"/?token={token}", {"Host": f"localhost:{port}"}),
            (421, "GET", f"/?token={token}", {"Host": "workbench.example"}),
            (421, "GET", f"/?token={token}", {"Host": "127.0.0.1"}),
            (421, "GET", f"/?token={token}", {"Host": f"127.0.0.1.example:{port}"}),
            (421, "POST", f"/{token}/requests/clear", {"Host": "workbench.example", **mine}),
            (403, "GET", "/", {}),
            (403, "GET", f"/?token={token[:-1]}", {}),
            (403, "GET", f"/?token={token}&token=x", {}),
            (403, "GET", "/events", {}),
            (403, "GET", "/page.js", {}),
            (403, "GET", f"/{token[:-1]}0{token[-1]}/events", {}),
            (403, "GET", f"/{token}/requests/1", {"Origin": "null"}),
            (403, "GET", f"/{token}/page.js", {"Sec-Fetch-Site": "cross-site"}),
            (404, "GET", f"/{token}/requests/1", {}),
            (404, "GET", f"/{token}/../etc/passwd", {}),
            (403, "POST", f"/{token}/requests/clear", {}),
            (403, "POST", f"/{token}/requests/clear", {"Origin": "http://workbench.example"}),
            (403, "POST", "/requests/clear", mine),
            (404, "POST", f"/{token}/nothing", mine),
            (204, "POST", f"/{token}/requests/clear", mine),
            (405, "DELETE", f"/{token}/requests/clear", mine),
            (405, "OPTIONS", f"/{token}/answers", mine),
        ]
        for status, method, path, headers in cases:
            with self.subTest(method=method, path=path.replace(token, "TOKEN"), headers=headers):
                answered, fields = self.collector.page_request(method, path, headers)
                self.assertEqual(answered, status)
                self.assertNotIn("access-control-allow-origin", fields)
                self.assertIn("default-src 'none'", fields["content-security-policy"])

    def test_picks_up_where_it_was_cut_off(self):
        relay = neighbours.Relay(self.collector.origin)
        self.addCleanup(relay.end)
        self.open(f"http://{relay.own.decode()}/?token={self.collector.token}")
        for _ in range(3):
            self.collector.post(HEARTBEAT, "")
        self.until(lambda: self.ids() == [3, 2, 1])
        relay.cut()
        self.until(lambda: self.text("#link") != "live")
        self.collector.post(HEARTBEAT, "")
        self.until(lambda: self.ids() == [4, 3, 2, 1] and self.text("#link") == "live")
        self.assertEqual(self.text("#count"), "4 requests")

    def test_waits_for_no_page(self):
        """Clients that read nothing, as many as there may be, and one more."""
        host, port = self.collector.origin.removeprefix("http://").split(":")
        deaf = []
        for _ in range(8):
            one = socket.socket()
            one.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 2048)
            one.connect((host, int(port)))
            self.addCleanup(one.close)
            one.sendall(f"GET /{self.collector.token}/events HTTP/1.1\r\nHost: {host}:{port}\r\n\r\n".encode())
            self.assertEqual(one.recv(12), b"HTTP/1.1 200")
            deaf.append(one)
        self.assertEqual(self.collector.page_request("GET", f"/{self.collector.token}/events")[0], 503)
        long_names = metrics([(f"{number}-" + "x" * 190, 1) for number in range(150)])
        for _ in range(150):
            self.assertEqual(self.collector.post(METRICS, long_names), 200)

    def test_stays_quick_with_all_it_keeps(self):
        self.open()
        for number in range(CAPACITY + 100):
            self.collector.post(METRICS, metrics([(f"metric.{number % 150}", number)]))
        newest = CAPACITY + 100
        self.until(lambda: self.text("#count") == "2,000 requests" and newest in self.ids())
        most = self.script("return document.querySelectorAll('*').length")
        self.assertLess(len(self.ids()), 60)
        self.assertLess(most, 1000)
        self.find("#rows").send_keys(Keys.END)
        self.until(lambda: self.ids()[-1] == 101)
        self.assertLess(len(self.ids()), 60)
        self.find("#search").send_keys("metric.7 ")
        self.find("#search").send_keys(Keys.BACKSPACE)
        self.until(lambda: "of 2,000" in self.text("#count"))
        self.assertLess(len(self.ids()), 60)
        self.click("#tab-metrics")
        self.until(lambda: len(self.texts(".metric")) == 100)
        # The same for a page that comes late.
        self.open()
        self.until(lambda: self.text("#count") == "2,000 requests")
        self.assertEqual(self.collector.page_request("GET", f"/{self.collector.token}/requests/100")[0], 404)
        self.assertEqual(self.collector.page_request("GET", f"/{self.collector.token}/requests/101")[0], 200)

    def test_fits_every_window(self):
        self.fill_for_show()
        self.open()
        self.until(lambda: self.text("#count") == "38 requests")
        for width, height, name in ((1280, 800, "desktop"), (360, 740, "phone")):
            for theme in ("light", "dark"):
                self.resize(width, height)
                self.script("document.documentElement.dataset.theme = arguments[0]", theme)
                for view in ("requests", "detail", "metrics", "answers"):
                    if view == "requests" and name == "desktop":
                        self.find("#rows").send_keys(Keys.HOME)
                        self.until(lambda: "No. 38," in self.text("#detail"))
                    else:
                        self.click(f"#tab-{view}")
                    with self.subTest(width=width, theme=theme, view=view):
                        self.assertEqual(self.script(MISFITS), [])
                    self.browser.save_screenshot(str(ARTIFACTS / f"page-{name}-{theme}-{view}.png"))
        colours = self.script("""return ['light', 'dark'].map((theme) => {
            document.documentElement.dataset.theme = theme;
            return getComputedStyle(document.body).backgroundColor; })""")
        self.assertNotEqual(*colours)

    def fill_for_show(self):
        """The traffic of an app's day, failures included."""
        order = json.dumps({"answers": ["200", "200", "503", "200", "429:X-Retry-After-Millis=5000", "403", "drop"]})
        path = f"/{self.collector.token}/answers"
        self.assertEqual(self.collector.page_request("POST", path, {"Origin": self.collector.origin}, order)[0], 204)
        for kit, version in (("access", "1.0"), ("sharing", "2.1"), ("feed", "0.9")):
            self.collector.send("heartbeat", "--kit", kit, "--kit-version", version)
        for _ in range(3):
            self.collector.post(HEARTBEAT, heartbeat_batch((4, "0.9")))
        for number in range(28):
            self.collector.post(METRICS, metrics(
                [("postcards.sent", number % 5), ("photos.opened", 2), (HOSTILE, 1), ("a" * 120, 1)],
                [("postcards.upload", 80 + number * 7), ("app.start", 412 - number)]))
        self.collector.post("/v1/config", json.dumps(
            {"query": "config { search { enabled } }", "variables": {"n": 12}}))
        self.collector.post("/v1/nothing", "bytes of no kind")
        self.collector.post(HEARTBEAT, heartbeat_batch((1, "1.0"), (3, "2.1")))
        self.collector.send("heartbeat", "--kit", "avatar", "--kit-version", "3.3")
        order = json.dumps({"answers": ["503", "429:X-Retry-After-Millis=5000", "stall"]})
        self.assertEqual(self.collector.page_request("POST", path, {"Origin": self.collector.origin}, order)[0], 204)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]], verbosity=2)
