// The official OpenAI Node SDK against the same loopback stream as bench_streaming, for the throughput
// comparison. Not part of the build; run it from a folder where the SDK is installed:
//   mkdir /tmp/sdk && cd /tmp/sdk && npm install openai
//   build/bench/bench_streaming --serve 120 > /tmp/sdk/url &   # prints "URL BYTES PIECES"
//   nice node /path/to/bench/ai/node_sdk_baseline.mjs $(cat /tmp/sdk/url)
import OpenAI from 'openai';

const [url, bytes, pieces] = process.argv.slice(2);
const client = new OpenAI({ baseURL: url, apiKey: 'bench-key', maxRetries: 0 });
const rates = [];
for (let run = 0; run < 5; ++run) {
    const stream = await client.chat.completions.create({
        model: 'bench-model', messages: [{ role: 'user', content: 'bench' }], stream: true });
    let first = 0, last = 0, seen = 0;
    for await (const chunk of stream) {
        if (!chunk.choices?.[0]?.delta?.content)
            continue;
        last = performance.now();
        if (seen++ === 0)
            first = last;
    }
    if (seen !== Number(pieces))
        throw new Error(`stream incomplete: ${seen} of ${pieces} pieces`);
    rates.push(Number(bytes) / 1e6 / ((last - first) / 1e3));
}
rates.sort((a, b) => a - b);
console.log(`node_sdk_baseline: openai SDK, ${pieces} pieces, median ${rates[2].toFixed(1)} MB/s`);
