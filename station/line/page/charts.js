// The charts of the yield page, in the page's own colours.
import {find} from '/dom.js';

const {Chart} = window;
const shown = new Map();

const colour = (name) => getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();

Chart.defaults.animation = false;
Chart.defaults.datasets.bar.maxBarThickness = 64;
Chart.defaults.maintainAspectRatio = false;
Chart.defaults.font.family = getComputedStyle(document.body).fontFamily;

// Draws the chart, or puts new data into the one that stands there. `label` is what a screen reader says.
function draw(id, label, build) {
  const canvas = find(`#${id}`);
  canvas.setAttribute('aria-label', label);
  Chart.defaults.color = colour('quiet');
  Chart.defaults.borderColor = colour('line');
  shown.get(id)?.chart.destroy();
  shown.set(id, {chart: new Chart(canvas, build()), again: () => draw(id, label, build)});
}

matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => {
  for (const {again} of [...shown.values()]) again();
});

// What is drawn, for who wants to look at it: {id: data}.
export const drawn = () => Object.fromEntries([...shown].map(([id, {chart}]) => [id, chart.data]));

const percent = (value) => `${(100 * value).toFixed(1)} %`;

// groups: [{name, passed, failed}]
export function drawYield(id, groups) {
  draw(id, `Yield: ${groups.map((group) => `${group.name} ${group.passed} of ${group.passed + group.failed}`).join(', ')}`,
    () => ({
      type: 'bar',
      data: {
        labels: groups.map((group) => group.name),
        datasets: [
          {label: 'passed', data: groups.map((group) => group.passed), backgroundColor: colour('pass'), stack: 'runs'},
          {label: 'not passed', data: groups.map((group) => group.failed), backgroundColor: colour('fail'), stack: 'runs'},
          {label: 'yield', type: 'line', yAxisID: 'share', data: groups.map(({passed, failed}) => passed / (passed + failed)),
            borderColor: colour('text'), backgroundColor: colour('text'), borderWidth: 2, pointRadius: 5,
            pointBorderColor: colour('card'), pointBorderWidth: 2, clip: false, order: -1}, // over the bars
        ],
      },
      options: {
        interaction: {mode: 'index'},
        plugins: {tooltip: {callbacks: {label: ({dataset, raw}) =>
          `${dataset.label}: ${dataset.yAxisID ? percent(raw) : raw}`}}},
        scales: {
          x: {stacked: true, grid: {display: false}},
          y: {stacked: true, beginAtZero: true, ticks: {precision: 0}, title: {display: true, text: 'phones'}},
          share: {position: 'right', min: 0, max: 1, grid: {display: false}, ticks: {callback: (value) => `${100 * value} %`}},
        },
      },
    }));
}

// steps: [{step, count}], the worst first
export function drawFailingSteps(id, steps) {
  draw(id, `Failing steps: ${steps.map(({step, count}) => `${step} ${count}`).join(', ') || 'none'}`, () => ({
    type: 'bar',
    data: {labels: steps.map(({step}) => step),
      datasets: [{label: 'failures', data: steps.map(({count}) => count), backgroundColor: colour('fail')}]},
    options: {indexAxis: 'y', plugins: {legend: {display: false}},
      scales: {x: {beginAtZero: true, ticks: {precision: 0}}, y: {grid: {display: false}}}},
  }));
}

const limitLine = (label, value, count) => ({
  label, data: Array(count).fill(value), borderColor: colour('fail'), borderWidth: 2, borderDash: [6, 4], pointRadius: 0,
});

// points: [{value, verdict}], the oldest first
export function drawTrend(id, {name, points, minimum, maximum}) {
  draw(id, `Trend of ${name}, ${points.length} values`, () => ({
    type: 'line',
    data: {
      labels: points.map((_, index) => index + 1),
      datasets: [
        {label: name, data: points.map(({value}) => value), borderColor: colour('accent'), borderWidth: 1,
          pointRadius: 2.5, pointBackgroundColor: points.map(({verdict}) => colour(verdict === 'passed' ? 'accent' : 'fail'))},
        minimum === null ? null : limitLine('lower limit', minimum, points.length),
        maximum === null ? null : limitLine('upper limit', maximum, points.length),
      ].filter(Boolean),
    },
    options: {scales: {x: {title: {display: true, text: 'runs, the oldest first'}, grid: {display: false}}}},
  }));
}

// Marks the limits in the histogram, whose scale is one of classes.
const limitMarks = {
  id: 'limitMarks',
  afterDatasetsDraw(chart) {
    const {ctx, chartArea, scales} = chart;
    for (const value of chart.options.plugins.limitMarks.limits) {
      const place = scales.x.getPixelForValue(value);
      if (place < chartArea.left - 1 || place > chartArea.right + 1) continue;
      ctx.save();
      ctx.strokeStyle = colour('fail');
      ctx.lineWidth = 2;
      ctx.setLineDash([6, 4]);
      ctx.beginPath();
      ctx.moveTo(place, chartArea.top);
      ctx.lineTo(place, chartArea.bottom);
      ctx.stroke();
      ctx.restore();
    }
  },
};

export function classesOf(values, limits) {
  const all = [...values, ...limits];
  const low = Math.min(...all);
  const high = Math.max(...all);
  const count = Math.max(5, Math.min(24, Math.ceil(Math.sqrt(values.length)) * 2));
  const width = (high - low) / count || 1;
  const classes = Array.from({length: count}, (_, index) => ({x: low + (index + 0.5) * width, y: 0}));
  for (const value of values) classes[Math.min(count - 1, Math.floor((value - low) / width))].y += 1;
  return {classes, width, low, high: low + count * width};
}

export function drawHistogram(id, {name, unit, points, minimum, maximum}) {
  const limits = [minimum, maximum].filter((limit) => limit !== null);
  const {classes, low, high} = classesOf(points.map(({value}) => value), limits);
  draw(id, `Histogram of ${name}`, () => ({
    type: 'bar',
    data: {datasets: [{label: 'runs', data: classes, backgroundColor: colour('accent'), barPercentage: 1, maxBarThickness: 400,
      categoryPercentage: 0.95}]},
    options: {
      plugins: {legend: {display: false}, limitMarks: {limits}},
      scales: {
        x: {type: 'linear', min: low, max: high, offset: false, grid: {display: false},
          title: {display: true, text: `${name}${unit ? `, ${unit}` : ''}; dashed: limits`}},
        y: {beginAtZero: true, ticks: {precision: 0}},
      },
    },
    plugins: [limitMarks],
  }));
}
