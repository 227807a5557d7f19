#!/usr/bin/env python3
"""Looks at the page of `nerio run --html` in a headless browser: everything draws, and nothing complains.

    run_page.py NERIO [STATE]
"""
import html
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

# Runs in a copy of the page: boxes of what is drawn, and what was loaded from elsewhere.
PROBE = """
<script>
window.addEventListener('load', () => {
  const boxes = selector => [...document.querySelectorAll(selector)].map(each => {
    const box = each.getBoundingClientRect();
    return {width: box.width, height: box.height, data: {...each.dataset}};
  });
  document.querySelectorAll('details').forEach(each => { each.open = true; });
  const found = {
    curves: boxes('#fill .curve'), cards: boxes('#fill .card'), moves: boxes('#moves .bar'),
    writes: boxes('#writes .bar:not(.warm)'), rows: boxes('#rows svg.row'), fields: boxes('#rows svg.row rect'),
    texts: boxes('#rows svg.row text'), families: boxes('#rows details'), verification: boxes('#verification'),
    loaded: performance.getEntriesByType('resource').map(each => each.name),
    pageWidth: document.documentElement.scrollWidth, windowWidth: window.innerWidth
  };
  const result = document.createElement('pre');
  result.id = 'probe';
  result.textContent = JSON.stringify(found);
  document.body.append(result);
});
</script>
"""

failures = []


def expect(holds, text):
    if not holds:
        failures.append(text)


def run_switch(nerio, state, page):
    done = subprocess.run([nerio, 'run', *state, '--json', '--html', page], capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f'nerio run failed with status {done.returncode}: {done.stderr}')
    return json.loads(done.stdout)


def browse(browser, page, directory, width):
    """The probe's findings, and the lines that the page logged."""
    done = subprocess.run(
        [browser, '--headless', '--no-sandbox', '--disable-gpu', '--disable-dev-shm-usage', '--enable-logging=stderr',
         f'--user-data-dir={directory}/profile', f'--window-size={width},900', '--virtual-time-budget=5000',
         '--dump-dom', 'file://' + page], capture_output=True, text=True, timeout=280)
    probe = re.search(r'<pre id="probe">(.*?)</pre>', done.stdout, re.S)
    if done.returncode != 0 or not probe:
        sys.exit(f'{browser} did not show the page, status {done.returncode}: {done.stderr[-2000:]}')
    logged = [line for line in done.stderr.splitlines() if 'CONSOLE' in line]
    return json.loads(html.unescape(probe.group(1))), logged


def drawn(boxes, what, count=None):
    expect(boxes, f'no {what}')
    if count is not None:
        expect(len(boxes) == count, f'{len(boxes)} {what} instead of {count}')
    empty = [box for box in boxes if box['width'] <= 0 or box['height'] <= 0]
    expect(not empty, f'{len(empty)} of {len(boxes)} {what} are not drawn')


def check(found, logged, report, text):
    expect(not logged, f'the page logs: {logged}')
    expect(not found['loaded'], f'the page loads {found["loaded"]}')
    expect(not re.search(r'(src|href)="(?!#|data:)', text), 'the page names something outside of it')
    expect(found['pageWidth'] <= found['windowWidth'], f'the page is {found["pageWidth"]} wide, wider than its window')

    agents = [name for name in ('routes', 'multicastRoutes', 'translations') if name in report]
    written = {table['name']: table['registerWrites'] for table in report['cold']}
    for name in agents:
        written[name] = report[name]['cold']['startWrites'] + report[name]['cold']['registerWrites']
    drawn(found['writes'], 'bars of register writes', len(written))
    values = [int(bar['data']['value']) for bar in found['writes']]
    expect(values == list(written.values()), f'bars of register writes say {values}')

    cards = {card['data']['table']: card['data'] for card in found['cards']}
    drawn(found['cards'], 'cards of fill')
    drawn(found['curves'], 'curves of fill', len(found['cards']))
    for table in report['cold']:
        used = table.get('placement', {}).get('rowsInUse', table['entries'])
        shown = cards.get(table['name'], {}).get('used')
        expect(shown == str(used), f'the card of {table["name"]} says {shown} instead of {used}')

    drawn(found['moves'], 'bars of moves')
    placed = sum(sum(table['placement']['moves']) for table in report['cold'] if 'placement' in table)
    moved = sum(int(bar['data']['value']) for bar in found['moves'])
    expect(moved >= placed, f'bars of moves say {moved} placements, tables {placed}')

    drawn(found['rows'], 'pictures of rows')
    drawn(found['fields'], 'fields')
    drawn(found['texts'], 'labels')
    families = {box['data']['family'] for box in found['families']}
    missing = {table['family'] for table in report['cold']} - families
    expect(not missing, f'no rows of {missing}')

    drawn(found['verification'], 'verification', 1)
    expect(found['verification'][0]['data']['differences'] == str(report['differences']), 'differences are told wrong')


def main():
    nerio, state = sys.argv[1], sys.argv[2:]
    browser = shutil.which('chromium') or shutil.which('chromium-browser')
    if browser is None:
        sys.exit('There is no chromium; the package is needed for tests (tools/install-dependencies.sh test)')
    with tempfile.TemporaryDirectory() as directory:
        page = os.path.join(directory, 'run.html')
        report = run_switch(nerio, state, page)
        with open(page, encoding='utf-8') as file:
            text = file.read()
        copy = os.path.join(directory, 'probed.html')
        with open(copy, 'w', encoding='utf-8') as file:
            file.write(text.replace('</body>', PROBE + '</body>'))
        for width in (1280, 500):
            found, logged = browse(browser, copy, directory, width)
            check(found, logged, report, text)
    for failure in failures:
        print(failure, file=sys.stderr)
    sys.exit(1 if failures else 0)


if __name__ == '__main__':
    main()
