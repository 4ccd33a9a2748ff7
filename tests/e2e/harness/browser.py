"""A headless Chromium that looks at a page as a person would: in light or dark, on a wide or a narrow screen."""

from __future__ import annotations

import base64
import json
import os
import re
import shutil
from pathlib import Path
from typing import Any

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.remote.webelement import WebElement


class Browser:
    """One browser with a profile of its own below `folder`."""

    def __init__(self, folder: Path) -> None:
        # Whatever it keeps, it keeps here.
        home = folder / "browser"
        shutil.rmtree(home, ignore_errors=True)
        home.mkdir(parents=True)
        places = {"HOME": "", "TMPDIR": "tmp", "XDG_CONFIG_HOME": "config", "XDG_CACHE_HOME": "cache"}
        environment = {**os.environ, **{name: str(home / place) for name, place in places.items()}}
        (home / "tmp").mkdir()
        options = webdriver.ChromeOptions()
        # Root may not use the sandbox, and the shared memory of a container is small.
        for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu",
                         "--hide-scrollbars", "--force-device-scale-factor=1", f"--user-data-dir={home / 'profile'}"):
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"performance": "ALL", "browser": "ALL"})
        service = Service(shutil.which("chromedriver") or "/usr/bin/chromedriver", env=environment)
        self._driver = webdriver.Chrome(service=service, options=options)
        self.view("light", 1100)

    def __enter__(self) -> Browser:
        return self

    def __exit__(self, *_: object) -> None:
        self._driver.quit()

    def view(self, scheme: str, width: int) -> None:
        """Makes the browser one that prefers "light" or "dark", on a screen of some width."""
        self._command("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])
        self._command("Emulation.setDeviceMetricsOverride", width=width, height=900, deviceScaleFactor=1, mobile=False)

    def open(self, page: Path) -> None:
        self._driver.get_log("performance")
        self._driver.get(page.as_uri())

    def requested(self) -> list[str]:
        """The addresses that the browser asked for since the page was opened, the page's own included."""
        events = [json.loads(entry["message"])["message"] for entry in self._driver.get_log("performance")]
        return [event["params"]["request"]["url"] for event in events if event["method"] == "Network.requestWillBeSent"]

    def complaints(self) -> list[str]:
        """What the browser's console said: of refused scripts and styles, for example."""
        return [entry["message"] for entry in self._driver.get_log("browser")]

    @property
    def title(self) -> str:
        return self._driver.title

    def all(self, selector: str) -> list[WebElement]:
        return self._driver.find_elements(By.CSS_SELECTOR, selector)

    def one(self, selector: str) -> WebElement:
        return self._driver.find_element(By.CSS_SELECTOR, selector)

    def texts(self, selector: str) -> list[str]:
        """The texts of the elements as they are seen; those that are hidden have none."""
        return [element.text for element in self.all(selector)]

    def evaluate(self, script: str) -> Any:
        return self._driver.execute_script(f"return {script}")

    def screenshot(self, file: Path, height: int | None = None) -> None:
        """The whole page, or its upper part."""
        size = self._command("Page.getLayoutMetrics")["cssContentSize"]
        clip = {"x": 0, "y": 0, "width": size["width"], "height": min(height or size["height"], size["height"], 6000),
                "scale": 1}
        shot = self._command("Page.captureScreenshot", format="png", captureBeyondViewport=True, clip=clip)
        file.write_bytes(base64.b64decode(shot["data"]))

    def printed(self, file: Path) -> int:
        """Prints the page on A4 paper. Returns the number of sheets."""
        content = base64.b64decode(self._command("Page.printToPDF", paperWidth=8.27, paperHeight=11.69)["data"])
        file.write_bytes(content)
        return len(re.findall(rb"/Type\s*/Page\b", content))

    def _command(self, name: str, **parameters: Any) -> Any:
        return self._driver.execute_cdp_cmd(name, parameters)
