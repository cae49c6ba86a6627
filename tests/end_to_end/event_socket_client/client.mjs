// A monitoring program as a user of the library would write it: logs in, does the steps of its command line one after
// another, and tells each as a line "WHAT JSON". Ends with exit code 0 when all were done, 1 when one was refused.
//
//   node client.mjs PORT PASSWORD STEP...
//
// Steps: "api LINE", "bgapi LINE", "filter HEADER VALUE", "event plain|json NAME...", "await NAME COUNT" (events of that
// name since the beginning), "exit".

import { FreeSwitchClient, once } from 'esl'

const [port, password, ...steps] = process.argv.slice(2)
const quiet = () => {}
const client = new FreeSwitchClient({
  host: '127.0.0.1',
  port: Number(port),
  password,
  logger: { debug: quiet, info: quiet, error: quiet }
})

const tell = (what, value) => console.log(`${what} ${JSON.stringify(value)}`)
const counts = new Map()
const waiting = []

const hear = (call, name) => {
  call.on(name, (event) => {
    tell('event', event.body)
    counts.set(name, (counts.get(name) ?? 0) + 1)
    for (const one of waiting) one()
  })
}

const heard = (name, count) => new Promise((resolve) => {
  const look = () => { if ((counts.get(name) ?? 0) >= count) resolve() }
  waiting.push(look)
  look()
})

const take = async (call, step) => {
  const [verb, ...words] = step.split(' ')
  switch (verb) {
    case 'api':
      return (await call.api(words.join(' '))).body
    case 'bgapi':
      return (await call.bgapi(words.join(' '), 10000)).body._body ?? ''
    case 'filter':
      return (await call.filter(words[0], words.slice(1).join(' '))).headers['Reply-Text']
    case 'event':
      for (const name of words.slice(1)) hear(call, name)
      return (await call.send(step)).headers['Reply-Text']
    case 'await':
      await heard(words[0], Number(words[1]))
      return counts.get(words[0])
    case 'exit': {
      const notice = once(call, 'freeswitch_disconnect_notice')
      const reply = await call.exit()
      await notice
      return reply.headers['Reply-Text']
    }
    default:
      throw new Error(`there is no step "${verb}"`)
  }
}

const fail = (error) => {
  tell('refused', error.res?.headers?.['Reply-Text'] ?? error.res?.body ?? String(error))
  process.exit(1)
}

client.on('error', fail)
client.on('connect', async (call) => {
  try {
    tell('connected', true)
    for (const step of steps) tell(step, await take(call, step))
    client.end()
    process.exit(0)
  } catch (error) {
    fail(error)
  }
})
client.connect()
