// The peer of BM_TriangulateCaps: earcut's JavaScript version on the same
// rings, with the same throughput measure (ring points per second).
//
//   node bench/earcut_peer.js RINGS.json NODE_PREFIX [KORVEX_RESULTS.json]
//
// RINGS.json is written by korvex_bench when KORVEX_RINGS_JSON is set;
// NODE_PREFIX is where `npm install --prefix` put earcut; the optional
// Google Benchmark JSON output of korvex_bench adds the ratio column.
'use strict';
const fs = require('fs');
const path = require('path');
const { createRequire } = require('module');
const { pathToFileURL } = require('url');

// Passes per second of CPU time, as Google Benchmark counts items_per_second
// for the C++ side, so that a busy machine skews neither. The process's CPU
// time includes V8's own helper threads (collector, compiler): a real cost.
function cpuSeconds() {
    const u = process.cpuUsage();
    return (u.user + u.system) / 1e6;
}

function timeRounds(run, rounds, minSeconds) {
    const rates = [];
    for (let r = 0; r < rounds; ++r) {
        let passes = 0;
        const start = cpuSeconds();
        let elapsed = 0;
        do {
            run();
            ++passes;
            elapsed = cpuSeconds() - start;
        } while (elapsed < minSeconds);
        rates.push(passes / elapsed);
    }
    rates.sort((a, b) => a - b);
    return rates[rates.length >> 1]; // median passes per second
}

async function main() {
    const [ringsPath, prefix, resultsPath] = process.argv.slice(2);
    if (!ringsPath || !prefix) {
        console.error('usage: earcut_peer.js RINGS.json NODE_PREFIX [KORVEX_RESULTS.json]');
        process.exit(2);
    }
    const requireFromPrefix = createRequire(path.resolve(prefix) + path.sep);
    const entry = requireFromPrefix.resolve('earcut');
    const earcut = (await import(pathToFileURL(entry).href)).default;
    const version = JSON.parse(
        fs.readFileSync(path.join(path.dirname(entry), '..', 'package.json'), 'utf8')).version;

    const korvex = {};
    if (resultsPath && fs.existsSync(resultsPath)) {
        for (const b of JSON.parse(fs.readFileSync(resultsPath, 'utf8')).benchmarks) {
            if (b.name.startsWith('BM_TriangulateCaps') && b.label)
                korvex[b.label] = b.items_per_second;
        }
    }

    const sets = JSON.parse(fs.readFileSync(ringsPath, 'utf8')).sets;
    console.log(`earcut ${version} on node ${process.version}, the rings of BM_TriangulateCaps`);
    console.log('set           points  triangles   korvex Mpts/s   earcut Mpts/s   ratio');
    for (const set of sets) {
        // earcut's input form: flat coordinates and the start of each hole.
        const inputs = set.polygons.map((rings) => {
            const data = [];
            const holes = [];
            rings.forEach((ring, r) => {
                if (r > 0) holes.push(data.length / 2);
                for (const v of ring) data.push(v);
            });
            return { data, holes };
        });
        let triangles = 0;
        const run = () => {
            triangles = 0;
            for (const p of inputs) triangles += earcut(p.data, p.holes, 2).length / 3;
        };
        timeRounds(run, 1, 0.5); // warm-up: let the JIT settle
        const passesPerSecond = timeRounds(run, 5, 0.4);
        const peer = (passesPerSecond * set.points) / 1e6;
        const own = korvex[set.name] ? korvex[set.name] / 1e6 : NaN;
        console.log(
            `${set.name.padEnd(12)} ${String(set.points).padStart(7)} ${String(triangles).padStart(10)}` +
            `   ${own.toFixed(2).padStart(13)}   ${peer.toFixed(2).padStart(13)}` +
            `   ${(own / peer).toFixed(2).padStart(5)}`);
    }
}

main().catch((e) => {
    console.error(e.message);
    process.exit(1);
});
