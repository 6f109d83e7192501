<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="ru_RU" sourcelanguage="en">
<context>
    <name>Generic</name>
    <message>
        <source>Display color</source>
        <translation>Цвет отображения</translation>
    </message>
    <message>
        <source>Show</source>
        <translation>Показывать</translation>
    </message>
    <message>
        <source>Henning Window</source>
        <translation>Окно Хеннинга</translation>
    </message>
    <message>
        <source>Update time, sec</source>
        <translation>Время обновления, с</translation>
    </message>
    <message>
        <source>Find artefacts</source>
        <translation>Искать артефакты</translation>
    </message>
    <message>
        <source>lfzsfz threshold</source>
        <translation>Порог lfzsfz</translation>
    </message>
    <message>
        <source>hfzifz threshold</source>
        <translation>Порог hfzifz</translation>
    </message>
    <message>
        <source>Accumulation time, sec</source>
        <translation>Время накопления, с</translation>
    </message>
    <message>
        <source>Maximum frequency, Hz</source>
        <translation>Максимальная частота, Гц</translation>
    </message>
    <message>
        <source>Minimum frequency, Hz</source>
        <translation>Минимальная частота, Гц</translation>
    </message>
    <message>
        <source>Use average</source>
        <translation>Использовать среднее</translation>
    </message>
    <message>
        <source>Use power square</source>
        <translation>Использовать квадрат мощности</translation>
    </message>
    <message>
        <source>Enable</source>
        <translation>Включить</translation>
    </message>
    <message>
        <source>Use smoothing</source>
        <translation>Использовать сглаживание</translation>
    </message>
    <message>
        <source>Read channels</source>
        <translation>Читаемые каналы</translation>
    </message>
    <message>
        <source>Minimum threshold, µV</source>
        <translation>Минимальный порог, мкВ</translation>
    </message>
    <message>
        <source>Maximum threshold, µV</source>
        <translation>Максимальный порог, мкВ</translation>
    </message>
    <message>
        <source>Minimum threshold, %</source>
        <translation>Минимальный порог, %</translation>
    </message>
    <message>
        <source>Maximum threshold, %</source>
        <translation>Максимальный порог, %</translation>
    </message>
    <message>
        <source>Relative power of rhythm</source>
        <translation>Относительная мощность ритма</translation>
    </message>
    <message>
        <source>Minimum threshold</source>
        <translation>Минимальный порог</translation>
    </message>
    <message>
        <source>Maximum threshold</source>
        <translation>Максимальный порог</translation>
    </message>
    <message>
        <source>Calculation mode</source>
        <translation>Способ расчёта</translation>
    </message>
    <message>
        <source>Average;Integration;Max;Summa;Power</source>
        <translation>Среднее;Интегрирование;Максимум;Сумма;Мощность</translation>
    </message>
    <message>
        <source>Frequency calculation mode</source>
        <translation>Способ расчёта частоты</translation>
    </message>
    <message>
        <source>Average;Max</source>
        <translation>Среднее;Максимум</translation>
    </message>
    <message>
        <source>Use channel</source>
        <translation>Использовать канал</translation>
    </message>
    <message>
        <source>High pass filter, Hz</source>
        <translation>Фильтр верхних частот, Гц</translation>
    </message>
    <message>
        <source>Low pass filter, Hz</source>
        <translation>Фильтр нижних частот, Гц</translation>
    </message>
    <message>
        <source>Maximum bpm</source>
        <translation>Максимальный пульс, уд/мин</translation>
    </message>
    <message>
        <source>Minimum bpm</source>
        <translation>Минимальный пульс, уд/мин</translation>
    </message>
    <message>
        <source>Maximum amplitude</source>
        <translation>Максимальная амплитуда</translation>
    </message>
    <message>
        <source>Minimum amplitude</source>
        <translation>Минимальная амплитуда</translation>
    </message>
    <message>
        <source>Read channels 1</source>
        <translation>Читаемые каналы 1</translation>
    </message>
    <message>
        <source>Read channels 2</source>
        <translation>Читаемые каналы 2</translation>
    </message>
    <message>
        <source>Calculation formula</source>
        <translation>Формула расчёта</translation>
    </message>
    <message>
        <source>Used rhythms</source>
        <translation>Используемые ритмы</translation>
    </message>
    <message>
        <source>ch, </source>
        <translation>кан., </translation>
    </message>
    <message>
        <source>Hz</source>
        <translation>Гц</translation>
    </message>
    <message>
        <source>Duration</source>
        <translation>Длительность</translation>
    </message>
    <message>
        <source>Channels</source>
        <translation>Каналы</translation>
    </message>
    <message>
        <source>Sampling rate</source>
        <translation>Частота дискретизации</translation>
    </message>
    <message>
        <source>Subject</source>
        <translation>Испытуемый</translation>
    </message>
    <message>
        <source>Start time</source>
        <translation>Время начала</translation>
    </message>
    <message>
        <source>Information</source>
        <translation>Информация</translation>
    </message>
    <message>
        <source>Data</source>
        <translation>Данные</translation>
    </message>
    <message>
        <source>Start date</source>
        <translation>Дата начала</translation>
    </message>
    <message>
        <source>Rhythms amount</source>
        <translation>Количество ритмов</translation>
    </message>
    <message>
        <source>Time</source>
        <translation>Время</translation>
    </message>
    <message>
        <source>Counts</source>
        <translation>Отсчёты</translation>
    </message>
    <message>
        <source>Maximum</source>
        <translation>Максимум</translation>
    </message>
    <message>
        <source>Average</source>
        <translation>Среднее</translation>
    </message>
    <message>
        <source>№ </source>
        <translation>№ </translation>
    </message>
    <message>
        <source>Annotations</source>
        <translation>Аннотации</translation>
    </message>
    <message>
        <source>File</source>
        <translation>Файл</translation>
    </message>
    <message>
        <source>Recording</source>
        <translation>Запись</translation>
    </message>
    <message>
        <source>Duration, sec</source>
        <translation>Длительность, с</translation>
    </message>
    <message>
        <source>Onset, sec</source>
        <translation>Начало, с</translation>
    </message>
    <message>
        <source>Text</source>
        <translation>Текст</translation>
    </message>
    <message>
        <source>Time, sec</source>
        <translation>Время, с</translation>
    </message>
    <message>
        <source>EDF conversion</source>
        <translation>Преобразование EDF</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Отмена</translation>
    </message>
    <message>
        <source>Done</source>
        <translation>Готово</translation>
    </message>
    <message>
        <source>Time left: %1</source>
        <translation>Осталось: %1</translation>
    </message>
</context>
</TS>
