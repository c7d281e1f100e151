// Opens every page of reports and prints what must not happen. Arguments: files.
import { allAddresses, go, launch, open } from './report.mjs';

const browser = await launch();
let status = 0;
for (const file of process.argv.slice(2)) {
  const page = await open(browser, file);
  const addresses = await allAddresses(page);
  for (const address of addresses) {
    await go(page, address);
    await page.evaluate(() => document.querySelectorAll('details').forEach(details => (details.open = true)));
    if (await page.$eval('h1', heading => heading.textContent) === 'There is no such page') page.problems.push(`${address}: not found`);
  }
  console.log(`${file}: ${addresses.length} pages`);
  for (const problem of page.problems) console.log(problem);
  if (page.problems.length > 0 || addresses.length < 3) status = 1;
}
await browser.close();
process.exit(status);
