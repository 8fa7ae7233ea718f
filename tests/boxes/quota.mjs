// A processor quota for the processes of a box, by a control group of its own.
import fs from 'node:fs';
import path from 'node:path';

const period = 100_000; // microseconds
const first = '/sys/fs/cgroup/cpu'; // of version 1
const second = '/sys/fs/cgroup';

// Version 2 tells its controllers, version 1 has a folder for each.
function makeFolder(name) {
  const isSecond = fs.existsSync(path.join(second, 'cgroup.controllers'));
  const folder = path.join(isSecond ? second : first, name);
  fs.mkdirSync(folder);
  return { folder, isSecond };
}

export class Quota {
  // `cores`: of processor time a second. Throws where this user may not make control groups.
  constructor(name, cores) {
    const { folder, isSecond } = makeFolder(name);
    const time = Math.round(cores * period);
    this.folder = folder;
    if (isSecond) {
      fs.writeFileSync(path.join(folder, 'cpu.max'), `${time} ${period}`);
      return;
    }
    fs.writeFileSync(path.join(folder, 'cpu.cfs_period_us'), `${period}`);
    fs.writeFileSync(path.join(folder, 'cpu.cfs_quota_us'), `${time}`);
    // Other work on the machine must not take what the quota allows.
    fs.writeFileSync(path.join(folder, 'cpu.shares'), '200000');
  }

  // Holds for what these processes start from now on, too.
  take(processes) {
    processes.forEach(({ pid }) => {
      try {
        fs.writeFileSync(path.join(this.folder, 'cgroup.procs'), `${pid}`);
      } catch {
        // it has ended
      }
    });
  }

  // Returns false as long as one of its processes has not ended.
  tryRemove() {
    try {
      fs.rmdirSync(this.folder);
      return true;
    } catch {
      return false;
    }
  }
}
