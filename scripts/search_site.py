#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""search_site.py FOLDER WORD PAGE: serves a site to a Chromium without any other network, types the word into its search, and
expects the page among what it finds. Runs in a network namespace of its own, whose loopback it needs up."""
import functools
import http.server
import sys
import threading

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait


class Quiet(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *_):
        pass


def found(address, word):
    """The addresses of what the search finds."""
    options = webdriver.ChromeOptions()
    for argument in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--window-size=1300,900"):
        options.add_argument(argument)
    browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    try:
        browser.get(f"{address}/index.html?q={word}")
        WebDriverWait(browser, 300).until(lambda one: one.find_elements(By.CSS_SELECTOR, ".md-search-result__link"))
        return [link.get_attribute("href") for link in browser.find_elements(By.CSS_SELECTOR, ".md-search-result__link")]
    finally:
        browser.quit()


def main(folder, word, page):
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), functools.partial(Quiet, directory=folder))
    threading.Thread(target=server.serve_forever, daemon=True).start()
    pages = found(f"http://127.0.0.1:{server.server_port}", word)
    server.shutdown()
    if not any(f"/{page}" in one for one in pages):
        print(f"the search for {word} finds {pages} instead of {page}")
        return 1
    print(f"the search for {word} finds {page}")
    return 0


sys.exit(main(*sys.argv[1:]))
