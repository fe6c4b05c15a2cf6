"""A browser without a screen, for the report's test and for the pictures of the documentation."""

import base64
import json
import tempfile

from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service

ARGUMENTS = ('--headless=new', '--no-sandbox', '--disable-gpu', '--no-first-run', '--disable-dev-shm-usage',
             '--disable-background-networking', '--disable-component-update', '--disable-sync',
             '--force-color-profile=srgb')


class Browser:
    """Chromium as Debian packages it, with a profile of its own. To be used in a `with`."""

    def __init__(self, scrollbars=False):
        self.arguments = ARGUMENTS if scrollbars else (*ARGUMENTS, '--hide-scrollbars')

    def __enter__(self):
        self.profile = tempfile.TemporaryDirectory(prefix='cindral-browser-', ignore_cleanup_errors=True)
        options = Options()
        options.binary_location = '/usr/bin/chromium'
        for argument in (*self.arguments, '--user-data-dir=' + self.profile.name):
            options.add_argument(argument)
        options.set_capability('goog:loggingPrefs', {'browser': 'ALL', 'performance': 'ALL'})
        try:
            self.driver = webdriver.Chrome(service=Service('/usr/bin/chromedriver'), options=options)
        except Exception as error:
            self.profile.cleanup()
            raise RuntimeError('no browser: run scripts/install-dependencies') from error
        return self

    def __exit__(self, *_):
        self.driver.quit()
        self.profile.cleanup()

    def command(self, name, **arguments):
        """Of the browser's debugging protocol."""
        return self.driver.execute_cdp_cmd(name, arguments)

    def run(self, script, *arguments):
        """What `script` returns, run in the page."""
        return self.driver.execute_script(script, *arguments)

    def show(self, file, width, height, dark=False, touch=False, scale=1):
        """Opens the file as on a screen of that size, and returns once it is drawn."""
        self.command('Emulation.setDeviceMetricsOverride', width=width, height=height, deviceScaleFactor=scale,
                     mobile=touch)
        self.command('Emulation.setTouchEmulationEnabled', enabled=touch)
        scheme = {'name': 'prefers-color-scheme', 'value': 'dark' if dark else 'light'}
        self.command('Emulation.setEmulatedMedia', media='', features=[scheme])
        self.driver.get('file://' + file)
        self.settle()

    def settle(self):
        """Returns when everything that was asked for is on the screen, and the log has caught up."""
        self.driver.execute_async_script('''
            const done = arguments[arguments.length - 1];
            requestAnimationFrame(() => setTimeout(() => requestAnimationFrame(() => done()), 200));''')

    def requests(self):
        """The addresses the browser asked for since it was last asked this."""
        messages = (json.loads(entry['message'])['message'] for entry in self.driver.get_log('performance'))
        return [message['params']['request']['url'] for message in messages
                if message['method'] == 'Network.requestWillBeSent']

    def console(self):
        """What stands in the console since it was last asked for."""
        return [entry['message'] for entry in self.driver.get_log('browser')]

    def picture(self, clip=None):
        """PNG of the visible part, or of a stretch {x, y, width, height} of the whole page."""
        arguments = {'clip': {**clip, 'scale': 1}, 'captureBeyondViewport': True} if clip else {}
        return base64.b64decode(self.command('Page.captureScreenshot', format='png', **arguments)['data'])
