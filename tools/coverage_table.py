"""Prints llvm-cov's summary of branches as a table, the least covered file first."""
import json
import os
import sys


def main():
    files = json.load(sys.stdin)['data'][0]['files']
    rows = [(os.path.relpath(file['filename']), file['summary']['branches']) for file in files]
    rows = [(name, branches['covered'], branches['count']) for name, branches in rows if branches['count'] > 0]
    rows.sort(key=lambda row: row[1] / row[2])
    rows.append(('all', sum(row[1] for row in rows), sum(row[2] for row in rows)))
    for name, covered, count in rows:
        print(f'{100 * covered / count:6.1f} %  {covered:5} of {count:5}  {name}')


main()
