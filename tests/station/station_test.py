#!/usr/bin/python3 -Wignore::ResourceWarning
"""The station as a whole: real processes, a real broker, a real browser.

station_test.py PROGRAMS MODULE [unittest arguments]
OSTREL_KILLS is the number of times the station is killed (20).
"""
import base64, http.client, json, os, random, signal, socket, sqlite3, subprocess, sys, tempfile, time, unittest, urllib.error, urllib.parse, urllib.request

PROGRAMS, MODULE = sys.argv[1:3]
TAGS = '["A+ Tariff Sum", "Power P Sum", "Voltage Phase ?", "Meter constant", "* Transformation Coefficient", "LimitPowerWeekDay"]'


def free_port():
    with socket.socket() as s:
        s.bind(('127.0.0.1', 0))
        return s.getsockname()[1]


def wait(what, seconds=20, step=0.1):
    end = time.monotonic() + seconds
    while True:
        value = what()
        if value or time.monotonic() > end:
            return value
        time.sleep(step)


class Broker:
    def __init__(self, folder):
        self.port, self.file = free_port(), folder + '/mosquitto.conf'
        with open(self.file, 'w') as f:
            # What it acknowledged it has on the disk: else a killed broker loses what it took over.
            f.write(f'listener {self.port} 127.0.0.1\nallow_anonymous true\npersistence true\npersistence_location {folder}/\n'
                    'autosave_on_changes true\nautosave_interval 1\n' + ('user root\n' if os.geteuid() == 0 else ''))
        self.start()

    def start(self):
        self.process = subprocess.Popen(['/usr/sbin/mosquitto', '-c', self.file], stderr=subprocess.DEVNULL)
        wait(lambda: not socket.socket().connect_ex(('127.0.0.1', self.port)))

    def kill(self):
        time.sleep(0.3)  # nothing is on its way to the disk
        self.process.kill()
        self.process.wait()

    def listen(self, topic):
        """Lines 'topic payload' as they come, of a subscriber that comes back when the broker does."""
        return Listener(self.port, topic)

    def get(self, topic, seconds=15):
        done = subprocess.run(['mosquitto_sub', '-p', str(self.port), '-t', topic, '-C', '1', '-W', str(seconds)], capture_output=True, text=True)
        return done.stdout.strip()

    def put(self, topic, payload, *more):
        subprocess.run(['mosquitto_pub', '-p', str(self.port), '-t', topic, '-q', '1', '-m', payload, *more], check=True)


class Listener:
    def __init__(self, port, topic):
        self.file = tempfile.NamedTemporaryFile('w+', suffix='.log')
        self.process = subprocess.Popen(['mosquitto_sub', '-p', str(port), '-t', topic, '-q', '1', '-v', '-V', '5', '-c', '-i', 'listener', '-x', '3600'],
                                        stdout=self.file, stderr=subprocess.DEVNULL)

    def lines(self):
        with open(self.file.name) as f:
            return f.read().splitlines()

    def close(self):
        self.process.kill()
        self.process.wait()
        self.file.close()


class StationTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.path, self.line = self.folder.name, self.folder.name + '/line'
        self.web, self.config, self.station, self.broker = free_port(), self.path + '/station.toml', None, None
        self.start_meters()
        self.addCleanup(self.folder.cleanup)
        self.addCleanup(self.end)

    def end(self):
        for process in (self.station, self.meters, self.broker and self.broker.process):
            if process and process.poll() is None:
                process.kill()
                process.wait()

    def start_meters(self, *more):
        self.meters = subprocess.Popen([PROGRAMS + '/ostrel-meter', '--line', 'pty:' + self.line, '12:1:password2=222222:installed=2026-11-20T00:00:00', '13:8', *more],
                                       stdout=subprocess.PIPE, text=True)
        self.meters.stdout.readline()

    def write_config(self, more='', web='', device=None, tags=TAGS, extra=''):
        mqtt = f'[mqtt]\nbroker = "127.0.0.1:{self.broker.port}"\nwrites = true\nhome_assistant = true\n' if self.broker else ''
        with open(self.config, 'w') as f:
            f.write(f'''[archive]
station = "north"
database = "{self.path}/archive.db"
history = []
{mqtt}[web]
address = "127.0.0.1:{self.web}"
{web}
[[channel]]
port = "COM1"
device = "{device or self.line}"
poll_period_s = 1
{more}
  [[channel.meter]]
  name = "feeder-1"
  address = 12
  type = 1
  level2_password = "222222"
  tags = {tags}
{extra}''')

    def start(self, ready=True):
        self.log = open(self.path + '/station.log', 'a+')
        self.station = subprocess.Popen([PROGRAMS + '/ostrel-station', 'run', '--config', self.config, '--module', MODULE], stderr=self.log)
        if ready:
            self.assertTrue(wait(lambda: self.passes('COM1') > 0, 30), self.said())

    def said(self):
        with open(self.path + '/station.log') as f:
            return f.read()

    def ask(self, path, headers={}, body=None):
        request = urllib.request.Request(f'http://127.0.0.1:{self.web}{path}', data=body, headers=headers)
        with urllib.request.urlopen(request, timeout=70) as answer:
            return answer.read().decode()

    def api(self, path, **query):
        return json.loads(self.ask('/api/' + path + '?' + urllib.parse.urlencode(query)))

    def passes(self, channel):
        try:
            return next((c['passes'] for c in self.api('meters')['channels'] if c['channel'] == channel), 0)
        except OSError:
            return 0

    def rows(self, sql):
        with sqlite3.connect(f'file:{self.path}/archive.db?mode=ro', uri=True) as base:
            return base.execute(sql).fetchall()


class Killed(StationTest):
    def test_nothing_kept_is_lost_or_doubled_and_the_broker_gets_everything(self):
        """Killed at random moments, with a broker that is killed and started in between."""
        self.broker = Broker(self.path)
        self.write_config(more='pre_send_pause_ms = 0')
        listener = self.broker.listen('ostrel/#')
        self.addCleanup(listener.close)
        luck, kept = random.Random(1), set()
        for kill in range(int(os.environ.get('OSTREL_KILLS', '20'))):
            self.start(ready=False)
            time.sleep(luck.uniform(0.05, 1.2))
            if os.path.exists(self.path + '/archive.db') and kill % 3 == 0:
                try:
                    kept |= set(self.rows('SELECT meter, tag, utc FROM current'))
                except sqlite3.OperationalError as error:  # before the first migration
                    self.assertIn('no such table', str(error))
            self.station.kill()
            self.station.wait()
            if kill % 10 == 5:
                self.broker.kill()
            if kill % 10 == 7:
                self.broker.start()
        if self.broker.process.poll() is not None:
            self.broker.start()
        self.start()
        self.assertEqual([('ok',)], self.rows('PRAGMA integrity_check'))
        now = set(self.rows('SELECT meter, tag, utc FROM current'))
        self.assertTrue(kept)
        self.assertEqual(set(), kept - now)
        self.station.send_signal(signal.SIGSTOP)
        self.broker.kill()
        self.station.send_signal(signal.SIGCONT)
        time.sleep(3)
        self.broker.start()
        last = self.rows("SELECT seq FROM sqlite_sequence WHERE name = 'outbox'")[0][0]
        numbers = lambda: {json.loads(line.split(' ', 1)[1])['n'] for line in listener.lines() if line.split(' ', 1)[1].startswith('{"n"')}
        self.assertTrue(wait(lambda: set(range(1, last + 1)) <= numbers(), 30), f'{sorted(set(range(1, last + 1)) - numbers())[:20]} of {last}')


class Broken(StationTest):
    def test_status_values_writes_and_the_last_will(self):
        self.broker = Broker(self.path)
        self.write_config()
        self.start()
        value = json.loads(self.broker.get('ostrel/north/feeder-1/Aplus_Tariff_Sum'))
        self.assertEqual((192, 'kWh'), (value['quality'], value['unit']))
        self.assertIsInstance(value['value'], float)
        self.assertEqual('online', self.broker.get('ostrel/north/status'))
        self.assertEqual('online', self.broker.get('ostrel/north/feeder-1/status'))
        sensor = json.loads(self.broker.get('homeassistant/sensor/north_feeder-1_20017/config'))
        self.assertEqual(('energy', 'ostrel/north/feeder-1/Aplus_Tariff_Sum'), (sensor['device_class'], sensor['state_topic']))
        listener = self.broker.listen('ostrel/north/feeder-1/LimitPowerWeekDay/set/answer')
        self.addCleanup(listener.close)
        topic = 'ostrel/north/feeder-1/LimitPowerWeekDay/set'
        time.sleep(0.5)
        for payload, outcome in (('{"value": 5000, "id": "a"}', 'accepted'), ('{"value": "much", "id": "b"}', 'refused'), ('no json', 'refused'),
                                 ('[' * 1000, 'refused'), ('{"value": {"a": 1}}', 'refused')):
            before = len(listener.lines())
            self.broker.put(topic, payload)
            self.assertTrue(wait(lambda: len(listener.lines()) > before), payload)
            self.assertEqual(outcome, json.loads(listener.lines()[before].split(' ', 1)[1])['outcome'], payload)
        self.assertEqual([('5000', 'accepted')], [(sent.removesuffix('.0'), outcome) for sent, outcome in self.rows('SELECT sent, outcome FROM written')])
        # A write that the broker kept is not carried out at the next start.
        self.station.terminate()
        self.station.wait()
        self.broker.put(topic, '{"value": 7000}', '-r')
        self.start()
        time.sleep(2)
        self.assertEqual(1, len(self.rows('SELECT * FROM written')))
        self.station.kill()
        self.station.wait()
        self.assertTrue(wait(lambda: self.broker.get('ostrel/north/status') == 'offline'))

    def test_a_new_configuration_restarts_what_it_changes_and_a_wrong_one_nothing(self):
        second = '[[channel]]\nport = "COM2"\ndevice = "simulated"\npoll_period_s = {}\n  [[channel.meter]]\n  name = "b"\n  address = 1\n  type = 1\n  tags = ["A+ Tariff Sum"]\n'
        self.write_config(extra=second.format(1))
        self.start()
        self.assertTrue(wait(lambda: self.passes('COM1') > 2 and self.passes('COM2') > 2))
        for wrong in ('nonsense = 1', 'baud = 17'):
            self.write_config(more=wrong, extra=second.format(2))
            self.station.send_signal(signal.SIGHUP)
            self.assertTrue(wait(lambda: 'is refused' in self.said()))
        self.assertEqual(1, next(c['period_s'] for c in self.api('meters')['channels'] if c['channel'] == 'COM2'))
        before = self.passes('COM1')
        self.write_config(extra=second.format(2))
        self.station.send_signal(signal.SIGHUP)
        period = lambda: next((c['period_s'] for c in self.api('meters')['channels'] if c['channel'] == 'COM2'), 0)
        self.assertTrue(wait(lambda: period() == 2))
        self.assertGreaterEqual(self.passes('COM1'), before, 'it polls on')

    def test_it_ends_within_five_seconds_whatever_the_line_does(self):
        self.write_config(more='timeout_ms = 20000\nretries = 10')
        self.start()
        self.meters.send_signal(signal.SIGSTOP)
        time.sleep(1.5)
        began = time.monotonic()
        self.station.terminate()
        self.assertEqual(0, self.station.wait(10))
        self.assertLess(time.monotonic() - began, 5)
        self.meters.send_signal(signal.SIGCONT)

    def test_a_meter_that_is_exchanged_is_another_one(self):
        self.write_config()
        self.start()
        self.assertTrue(wait(lambda: self.rows('SELECT * FROM meter')))
        self.meters.kill()
        self.meters.wait()
        os.unlink(self.line)
        self.meters = subprocess.Popen([PROGRAMS + '/ostrel-meter', '--line', 'pty:' + self.line, '12:1:serial=777:password2=222222'], stdout=subprocess.PIPE, text=True)
        self.meters.stdout.readline()
        self.assertTrue(wait(lambda: len(self.rows('SELECT * FROM meter')) == 2, 90), self.said())
        self.assertTrue(wait(lambda: [r for r in self.rows('SELECT text FROM event') if 'was exchanged' in r[0]]))
        self.assertEqual(1, len(self.rows('SELECT * FROM meter WHERE until IS NULL AND serial LIKE "%777"')))


class Web(StationTest):
    def test_who_may_ask_what_and_what_is_no_question(self):
        import hashlib
        token = hashlib.sha256(b'secret').hexdigest()
        self.write_config(web=f'token_sha256 = "{token}"\nwrites = true')
        self.start(ready=False)
        self.assertTrue(wait(lambda: 'polls' in self.said()))
        right = {'Authorization': 'Bearer secret'}
        refused = lambda path, headers={}, body=None: self.status(path, headers, body)
        for headers in ({}, {'Authorization': 'Bearer wrong'}, {'Authorization': 'Basic ' + base64.b64encode(b'ostrel:secret').decode()}, {'Authorization': 'Basic !'}):
            self.assertEqual(401, refused('/api/meters', headers))
        self.assertEqual(200, refused('/healthz'))
        self.assertTrue(wait(lambda: json.loads(self.ask('/api/meters', right))['channels']))
        for path, status in (('/api/values', 400), ('/api/values?meter=no', 400), ('/api/records?meter=feeder-1&tag=x', 400), ('/../../etc/passwd', 404),
                             ('/api/records?meter=feeder-1&tag=1&from=1970-01-01', 400), ('/api/completeness?meter=feeder-1&from=never', 400)):
            self.assertEqual(status, refused(path, right), path)
        write = '/api/write?meter=feeder-1&tag=LimitPowerWeekDay'
        self.assertEqual(403, refused(write, right | {'Origin': 'http://elsewhere'}, b'{"value":1}'))
        self.assertEqual(400, refused(write, right, b'{"value":"x"}'))
        self.assertEqual(401, refused(write, {}, b'{"value":1}'))
        self.assertEqual('accepted', json.loads(self.ask(write, right, b'{"value":4000}'))['outcome'])
        luck = random.Random(2)
        for _ in range(200):
            with socket.create_connection(('127.0.0.1', self.web)) as s:
                head = luck.choice([b'', b'GET /api/values?meter=', b'POST /api/write HTTP/1.1\r\nContent-Length: ', b'GET / HTTP/1.1\r\nAuthorization: Basic '])
                s.sendall(head + luck.randbytes(luck.randrange(300)) + b'\r\n\r\n')
        self.assertEqual(200, refused('/healthz'))
        self.assertIsNone(self.station.poll())

    def status(self, path, headers, body):
        try:
            self.ask(path, headers, body)
            return 200
        except urllib.error.HTTPError as error:
            return error.code

    def test_metrics_are_lines_that_prometheus_reads(self):
        import re
        self.write_config()
        self.start()
        text = self.ask('/metrics')
        for line in text.splitlines():
            self.assertRegex(line, r'^(# (HELP|TYPE) \S+ .+|[a-z_]+(\{([a-z]+="[^"]*",?)*\})? [-+0-9.e]+)$')
        for family in ('ostrel_turnaround_seconds_bucket', 'ostrel_tags', 'ostrel_losses_total', 'ostrel_pass_seconds', 'ostrel_archive_waiting'):
            self.assertIn('\n' + family, text)

    def test_the_page_shows_what_the_api_says_and_follows_it(self):
        from selenium import webdriver
        from selenium.webdriver.chrome.service import Service
        self.write_config()
        self.start()
        options = webdriver.ChromeOptions()
        options.binary_location = '/usr/bin/chromium'
        for flag in ('--headless=new', '--no-sandbox', '--disable-gpu', '--window-size=1100,1500'):
            options.add_argument(flag)
        browser = webdriver.Chrome(service=Service('/usr/bin/chromedriver'), options=options)
        self.addCleanup(browser.quit)
        browser.get(f'http://127.0.0.1:{self.web}/')
        shown = lambda: dict(browser.execute_script("return [...document.querySelectorAll('#values tbody tr')].map(r => [r.dataset.tag, r.cells[1].textContent])"))
        told = lambda: {str(v['id']): v['value'] for v in self.api('values', meter='feeder-1')['values']}
        same = lambda s, t: s.keys() == t.keys() and all(s[k] == t[k] if isinstance(t[k], str) else t[k] is not None and s[k] not in ('', '–') and abs(float(s[k]) - t[k]) < 1e-9 for k in t)
        self.assertTrue(wait(lambda: same(shown(), told())), (shown(), told()))
        # The curve moves on its own: each new value must be on the page within two seconds.
        for _ in range(3):
            before = told()
            self.assertTrue(wait(lambda: told() != before, 60))
            new = told()
            changed = [k for k in new if new[k] != before[k]]
            self.assertTrue(wait(lambda: all(float(shown()[k]) == new[k] for k in changed) or told() != new, 2), (shown(), new))
        if 'OSTREL_PICTURE' in os.environ:
            browser.save_screenshot(os.environ['OSTREL_PICTURE'])
        self.station.kill()
        self.station.wait()
        self.start()
        self.assertTrue(wait(lambda: browser.execute_script("return document.getElementById('state').textContent") == 'live' and same(shown(), told()), 30))
        self.assertEqual([], [entry for entry in browser.get_log('browser') if 'SyntaxError' in entry['message'] or 'Content Security' in entry['message']])


if __name__ == '__main__':
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
